#include "general/foundation/files/ItemFinder.h"
#include "tests/support/NoDescriptors.h"
#include "tests/unit/general/foundation/files/FileTest.h"

using namespace foundation;
using namespace std::string_literals;

namespace {

class ItemFinderTest : public tests::FileTest {
 protected:
  /// What lies there, of which the finder must be able to tell.
  std::optional<ItemStatus> found(const std::string& path) { return finder_.find(path).value(); }

  ItemFinder finder_;
};

}  // namespace

TEST_F(ItemFinderTest, FindsItemsOfSeveralFoldersInAnyOrder) {
  box_.write("a/file", "12");
  box_.write("b/file", "123");
  EXPECT_EQ(found(path("a/file"))->size, 2U);
  EXPECT_EQ(found(path("b/file"))->size, 3U);
  EXPECT_TRUE(found(path("a"))->isDirectory());
  EXPECT_EQ(found(path("a/file"))->size, 2U);
  EXPECT_TRUE(found("/")->isDirectory());
}

TEST_F(ItemFinderTest, TellsOfAnItemWhatTheFileManagerTells) {
  box_.write("file", "x");
  ASSERT_EQ(chown(path("file").c_str(), 501, 20), 0);
  ASSERT_EQ(chmod(path("file").c_str(), 04711), 0);
  EXPECT_EQ(found(path("file")).value(), files::attributesOfItem(path("file")).value());
}

TEST_F(ItemFinderTest, DescribesALinkItselfAndFollowsThoseOnTheWay) {
  box_.write("folder/file", "x");
  ASSERT_EQ(symlink("folder", path("link").c_str()), 0);
  EXPECT_TRUE(found(path("link"))->isSymbolicLink());
  EXPECT_TRUE(found(path("link/file")));
}

TEST_F(ItemFinderTest, FindsNothingWhereNothingIs) {
  box_.write("file", "x");
  EXPECT_FALSE(found(path("missing")));
  EXPECT_FALSE(found(path("missing/below")));
  EXPECT_FALSE(found(path("file/below")));
  EXPECT_FALSE(found(path(std::string(256, 'x'))));
  ASSERT_EQ(symlink("loop", path("loop").c_str()), 0);
  EXPECT_FALSE(found(path("loop/below")));
}

TEST_F(ItemFinderTest, WhatCannotBeLookedAtIsNeitherThereNorMissing) {
  box_.write("folder/file", "x");
  const tests::NoDescriptors none;
  const auto item = finder_.find(path("folder/file"));
  ASSERT_FALSE(item.ok());
  EXPECT_EQ(item.error().underlyingErrno, EMFILE);
  EXPECT_EQ(item.error().path, path("folder/"));
}

TEST_F(ItemFinderTest, LooksAgainWhereItCouldNotLookBefore) {
  box_.write("folder/file", "x");
  {
    const tests::NoDescriptors none;
    EXPECT_FALSE(finder_.find(path("folder/file")).ok());
  }
  EXPECT_TRUE(found(path("folder/file")));
}

TEST_F(ItemFinderTest, FindsAFolderThatWasMissingBefore) {
  EXPECT_FALSE(found(path("folder/file")));
  box_.write("folder/file", "x");
  EXPECT_TRUE(found(path("folder/file")));
}

TEST_F(ItemFinderTest, TakesNoRelativePathAndNoneWithANul) {
  box_.write("file", "x");
  EXPECT_FALSE(found(""));
  EXPECT_FALSE(found("file"));
  EXPECT_FALSE(found("./file"));
  EXPECT_FALSE(found(path("file\0x"s)));
}
