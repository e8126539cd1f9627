#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "general/foundation/files/GuardedFolder.h"
#include "tests/unit/general/foundation/files/FileTest.h"

using namespace foundation;

namespace {

class GuardedFolder : public tests::FileTest {
 protected:
  static constexpr uid_t kSomebody = 501;

  void SetUp() override {
    FileTest::SetUp();
    box_.makeDirectory("folder/below");
  }

  void makeLink(const std::string& name, const std::string& target, uid_t owner = 0) const {
    ASSERT_EQ(symlink(target.c_str(), path(name).c_str()), 0);
    ASSERT_EQ(lchown(path(name).c_str(), owner, 0), 0);
  }
  /// Whether the path leads to the folder of this name and nowhere else.
  [[nodiscard]] bool leadsTo(const std::string& through, const std::string& name) const {
    const auto opened = openGuardedFolder(path(through));
    struct stat reached {};
    EXPECT_TRUE(opened) << through;
    return opened && fstat(opened->number(), &reached) == 0 && reached.st_ino == statusOf(path(name)).st_ino;
  }
  [[nodiscard]] int errnoOf(const std::string& through) const {
    const auto opened = openGuardedFolder(path(through));
    EXPECT_FALSE(opened) << through;
    return opened ? 0 : opened.error().underlyingErrno;
  }
};

}  // namespace

TEST_F(GuardedFolder, IsOpenedByAPathWithoutLinks) {
  EXPECT_TRUE(leadsTo("folder", "folder"));
  EXPECT_TRUE(leadsTo("folder/below", "folder/below"));
}

TEST_F(GuardedFolder, FollowsLinksOfItsOwnUserOnTheWayAndAtTheEnd) {
  makeLink("relative", "folder");
  makeLink("absolute", path("folder"));
  makeLink("chain", "relative/below");
  makeLink("folder/up", "../folder/below");
  EXPECT_TRUE(leadsTo("relative", "folder"));
  EXPECT_TRUE(leadsTo("absolute/below", "folder/below"));
  EXPECT_TRUE(leadsTo("chain", "folder/below"));
  EXPECT_TRUE(leadsTo("folder/up", "folder/below"));
}

TEST_F(GuardedFolder, RefusesALinkOfSomebodyElseOnTheWayAndAtTheEnd) {
  makeLink("foreign", "folder", kSomebody);
  makeLink("own", "foreign");
  for (const std::string through : {"foreign", "foreign/below", "own", "own/below"}) {
    const auto opened = openGuardedFolder(path(through));
    ASSERT_FALSE(opened) << through;
    EXPECT_EQ(opened.error().code, kWriteNoPermission) << through;
    EXPECT_EQ(opened.error().path, path(through));
  }
}

TEST_F(GuardedFolder, EndsWhereLinksLeadInACircle) {
  makeLink("one", "other");
  makeLink("other", "one");
  EXPECT_EQ(errnoOf("one/below"), ELOOP);
}

TEST_F(GuardedFolder, IsNoFileAndNothingThatIsMissing) {
  box_.write("file", "x");
  makeLink("dangling", "missing");
  EXPECT_EQ(errnoOf("file"), ENOTDIR);
  EXPECT_EQ(errnoOf("file/below"), ENOTDIR);
  EXPECT_EQ(errnoOf("missing"), ENOENT);
  EXPECT_EQ(errnoOf("missing/below"), ENOENT);
  EXPECT_EQ(errnoOf("dangling"), ENOENT);
}
