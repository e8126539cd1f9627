#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "general/foundation/files/FileBuffer.h"
#include "general/foundation/files/GuardedReading.h"
#include "tests/unit/general/foundation/files/FileTest.h"

using namespace foundation;

namespace {

class GuardedReading : public tests::FileTest {
 protected:
  static constexpr uid_t kSomebody = 501;

  void SetUp() override {
    FileTest::SetUp();
    box_.makeDirectory("folder");
    box_.makeDirectory("theirs");
    ASSERT_EQ(chown(path("theirs").c_str(), kSomebody, kSomebody), 0);
    FileAttributes onlyOurs;
    onlyOurs.permissions = 0600;
    ASSERT_TRUE(files::writeAtomically(tests::bytesOf("secret"), path("folder/file"), onlyOurs));
  }
  void makeLink(const std::string& name, const std::string& target, uid_t owner) const {
    ASSERT_EQ(symlink(target.c_str(), path(name).c_str()), 0);
    ASSERT_EQ(lchown(path(name).c_str(), owner, 0), 0);
  }
  /// The content, or the code of the error.
  [[nodiscard]] std::string read(const std::string& name) {
    const auto content = files::readGuarded(path(name), buffer_);
    return content ? std::string(reinterpret_cast<const char*>(content->bytes.data()), content->bytes.size())
                   : std::to_string(content.error().code);
  }

  FileBuffer buffer_;
};

}  // namespace

TEST_F(GuardedReading, FollowsLinksOfItsOwnUserOnTheWayAndAtTheEnd) {
  makeLink("way", "folder", 0);
  makeLink("end", path("way/file"), 0);
  EXPECT_EQ(read("folder/file"), "secret");
  EXPECT_EQ(read("way/file"), "secret");
  EXPECT_EQ(read("end"), "secret");
  const auto names = files::contentsOfGuardedDirectory(path("way"));
  ASSERT_TRUE(names);
  EXPECT_EQ(*names, std::vector<std::string>{"file"});
}

TEST_F(GuardedReading, FollowsNoLinkOfSomebodyElse) {
  makeLink("theirs/way", path("folder"), kSomebody);
  makeLink("theirs/end", path("folder/file"), kSomebody);
  makeLink("ours", "theirs/end", 0);
  EXPECT_EQ(read("theirs/way/file"), "257");
  EXPECT_EQ(read("theirs/end"), "257");
  EXPECT_EQ(read("ours"), "257");
  EXPECT_FALSE(files::contentsOfGuardedDirectory(path("theirs/way")));
}

TEST_F(GuardedReading, TellsTheLinkFromTheFileItLeadsTo) {
  makeLink("end", path("folder/file"), 0);
  const auto content = files::readGuarded(path("end"), buffer_);
  ASSERT_TRUE(content);
  EXPECT_TRUE(content->item.isSymbolicLink());
  EXPECT_EQ(content->file.type, FileType::Regular);
  EXPECT_EQ(content->file.permissions, 0600U);
}

TEST_F(GuardedReading, ReadsNoFileOfSeveralNamesWhereOthersCanWrite) {
  ASSERT_EQ(link(path("folder/file").c_str(), path("theirs/name").c_str()), 0);
  ASSERT_EQ(link(path("folder/file").c_str(), path("folder/name").c_str()), 0);
  EXPECT_EQ(read("theirs/name"), "257");
  EXPECT_EQ(read("folder/name"), "secret");
  ASSERT_EQ(chmod(path("folder").c_str(), 01777), 0);
  EXPECT_EQ(read("folder/name"), "257");
}

TEST_F(GuardedReading, TakesNothingButARegularFileAndWaitsForNothing) {
  ASSERT_EQ(mkfifo(path("theirs/pipe").c_str(), 0666), 0);
  makeLink("zero", "/dev/zero", 0);
  EXPECT_EQ(read("theirs/pipe"), "256");
  EXPECT_EQ(read("zero"), "256");
  EXPECT_EQ(read("folder"), read("theirs"));
  EXPECT_EQ(read("nothing"), "260");
  EXPECT_EQ(files::contentsOfGuardedDirectory(path("nothing")).error().code, 260);
  EXPECT_EQ(files::contentsOfGuardedDirectory(path("folder/file")).error().underlyingErrno, ENOTDIR);
  EXPECT_FALSE(files::readGuarded("folder/file", buffer_));
}

TEST_F(GuardedReading, RefusesAFileBeyondTheLimitUnread) {
  EXPECT_EQ(files::readGuarded(path("folder/file"), buffer_, {}, 5).error().code, kReadTooLarge);
  EXPECT_TRUE(files::readGuarded(path("folder/file"), buffer_, {}, 6));
}
