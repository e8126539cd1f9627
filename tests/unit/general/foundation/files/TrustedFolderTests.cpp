#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>

#include "general/foundation/files/TrustedFolder.h"
#include "tests/unit/general/foundation/files/FileTest.h"

namespace {

namespace trusted_folder = foundation::trusted_folder;

constexpr std::uint32_t kRoot = 0;
constexpr std::uint32_t kSomebody = 501;

TEST(TrustedFolder, IsItsOwnersWhenNeitherGroupNorOthersMayWriteInIt) {
  EXPECT_TRUE(trusted_folder::isItsOwnersAlone(0755));
  EXPECT_TRUE(trusted_folder::isItsOwnersAlone(0700));
  EXPECT_FALSE(trusted_folder::isItsOwnersAlone(0775));
  EXPECT_FALSE(trusted_folder::isItsOwnersAlone(0757));
}

TEST(TrustedFolder, OfEverybodyStaysThatWithAStickyBit) { EXPECT_FALSE(trusted_folder::isItsOwnersAlone(01777)); }

TEST(TrustedFolder, IsRootsOnlyWhenItBelongsToRootToo) {
  EXPECT_TRUE(trusted_folder::isRootsAlone(kRoot, 0755));
  EXPECT_FALSE(trusted_folder::isRootsAlone(kSomebody, 0755));
  EXPECT_FALSE(trusted_folder::isRootsAlone(kRoot, 0775));
}

TEST(TrustedFolder, IsJudgedWithTheBitsOfItsTypeToo) {
  EXPECT_TRUE(trusted_folder::isRootsAlone(kRoot, S_IFDIR | 0755));
  EXPECT_FALSE(trusted_folder::isRootsAlone(kRoot, S_IFDIR | 0777));
}

class TrustedFolderOnDisk : public tests::FileTest {};

TEST_F(TrustedFolderOnDisk, IsTakenOverAsItIsAndNeverThroughALink) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can take folders over";
  }
  box_.write("folder/file", "x");
  box_.write("file", "x");
  ASSERT_EQ(symlink("folder", path("link").c_str()), 0);
  ASSERT_EQ(chown(path("folder").c_str(), kSomebody, kSomebody), 0);
  ASSERT_EQ(chmod(path("folder").c_str(), 0777), 0);
  const foundation::FileAttributes roots{.owner = 0, .group = 0, .permissions = 0755};
  EXPECT_FALSE(trusted_folder::takeOver(path("link"), roots));
  EXPECT_FALSE(trusted_folder::takeOver(path("file"), roots));
  EXPECT_EQ(trusted_folder::takeOver(path("missing"), roots).error().code, 4);
  EXPECT_FALSE(trusted_folder::isRootsAlone(path("folder")));
  EXPECT_TRUE(trusted_folder::takeOver(path("folder"), roots));
  EXPECT_TRUE(trusted_folder::isRootsAlone(path("folder")));
  EXPECT_EQ(access(path("folder/file").c_str(), F_OK), 0);
}

TEST_F(TrustedFolderOnDisk, OnTheWayToAFileIsNobodyElsesUntilSomebodyElseCanExchangeWhatLiesThere) {
  box_.write("folder/below/file", "x");
  const std::string file = path("folder/below/file");
  EXPECT_EQ(trusted_folder::firstOfSomebodyElse(file), std::nullopt);
  EXPECT_EQ(trusted_folder::firstOfSomebodyElse(path("missing/file")), std::nullopt);
  ASSERT_EQ(chmod(path("folder").c_str(), 0777), 0);
  EXPECT_EQ(trusted_folder::firstOfSomebodyElse(file), path("folder"));
  ASSERT_EQ(symlink("folder", path("link").c_str()), 0);
  EXPECT_EQ(trusted_folder::firstOfSomebodyElse(path("link/below/file")), path("folder"));
  ASSERT_EQ(chmod(path("folder").c_str(), 01777), 0);
  EXPECT_EQ(trusted_folder::firstOfSomebodyElse(file), std::nullopt);
  ASSERT_EQ(chmod(file.c_str(), 0666), 0);
  EXPECT_EQ(trusted_folder::firstOfSomebodyElse(file), file);
}

TEST_F(TrustedFolderOnDisk, OnTheWayToAFileIsSomebodyElsesWhenItWasGivenAway) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give folders away";
  }
  box_.write("folder/below/file", "x");
  ASSERT_EQ(symlink("folder", path("link").c_str()), 0);
  ASSERT_EQ(lchown(path("link").c_str(), kSomebody, kSomebody), 0);
  EXPECT_EQ(trusted_folder::firstOfSomebodyElse(path("link/below/file")), path("link"));
  ASSERT_EQ(chown(path("folder").c_str(), kSomebody, kSomebody), 0);
  EXPECT_EQ(trusted_folder::firstOfSomebodyElse(path("folder/below/file")), path("folder"));
}

TEST_F(TrustedFolderOnDisk, IsRootsAloneUntilItIsOpenedToOthersOrGivenAway) {
  ASSERT_EQ(mkdir(path("folder").c_str(), 0700), 0);
  EXPECT_TRUE(trusted_folder::isRootsAlone(path("folder")));
  ASSERT_EQ(chmod(path("folder").c_str(), 0777), 0);
  EXPECT_FALSE(trusted_folder::isRootsAlone(path("folder")));
  ASSERT_EQ(chmod(path("folder").c_str(), 0700), 0);
  ASSERT_EQ(chown(path("folder").c_str(), kSomebody, 0), 0);
  EXPECT_FALSE(trusted_folder::isRootsAlone(path("folder")));
}

TEST_F(TrustedFolderOnDisk, IsNoLinkNoFileAndNotMissing) {
  ASSERT_EQ(mkdir(path("folder").c_str(), 0700), 0);
  ASSERT_EQ(symlink("folder", path("link").c_str()), 0);
  box_.write("file", "x");
  EXPECT_FALSE(trusted_folder::isRootsAlone(path("link")));
  EXPECT_FALSE(trusted_folder::isRootsAlone(path("file")));
  EXPECT_FALSE(trusted_folder::isRootsAlone(path("missing")));
}

}  // namespace
