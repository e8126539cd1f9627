#include <cerrno>
#include <climits>

#include "general/foundation/files/GuardedRemoval.h"
#include "tests/unit/general/foundation/files/FileTest.h"

using namespace foundation;
using namespace std::string_literals;

namespace {

using Texts = std::vector<std::string>;

class GuardedRemovalTest : public tests::FileTest {
 protected:
  static constexpr uid_t kSomebody = 501;

  void makeLink(const std::string& name, const std::string& target, uid_t owner = 0) {
    ASSERT_EQ(symlink(target.c_str(), path(name).c_str()), 0);
    ASSERT_EQ(lchown(path(name).c_str(), owner, 0), 0);
  }

  GuardedRemoval removal_;
};

}  // namespace

TEST_F(GuardedRemovalTest, TellsWhatLiesAtAPathWithoutFollowingIt) {
  box_.write("folder/file", "x");
  makeLink("link", "folder");
  EXPECT_EQ(removal_.typeOf(path("folder")).value(), FileType::Directory);
  EXPECT_EQ(removal_.typeOf(path("folder/file")).value(), FileType::Regular);
  EXPECT_EQ(removal_.typeOf(path("link")).value(), FileType::SymbolicLink);
  EXPECT_EQ(removal_.typeOf(path("missing")).value(), std::nullopt);
  EXPECT_EQ(removal_.typeOf(path("missing/file")).value(), std::nullopt);
}

TEST_F(GuardedRemovalTest, ListsADirectoryAlsoThroughALinkOfItsOwn) {
  box_.write("folder/file", "x");
  makeLink("link", "folder");
  makeLink("circle", "circle");
  EXPECT_EQ(removal_.contentsOfDirectory(path("folder")).value(), Texts{"file"});
  EXPECT_EQ(removal_.contentsOfDirectory(path("missing")).error().code, 260);
  EXPECT_EQ(removal_.contentsOfDirectory(path("link")).value(), Texts{"file"});
  EXPECT_EQ(removal_.contentsOfDirectory(path("circle")).error().underlyingErrno, ELOOP);
  EXPECT_EQ(removal_.contentsOfDirectory(path("folder/file")).error().code, 256);
}

/// A path that is longer than the system takes, of names that it would take.
std::string deep() {
  std::string path = "d";
  while (path.size() < PATH_MAX) {
    path += "/d";
  }
  return path;
}

TEST_F(GuardedRemovalTest, RefusesPathsThatAreNotAbsoluteOrNameNoItem) {
  box_.write("file", "x");
  box_.write("folder/file", "x");
  for (const std::string& unusable :
       {""s, "/"s, "file"s, path("file\0x"s), path("folder\0x/file"s), path("folder/"), path("folder/."),
        path("folder/.."), path(std::string(256, 'x')), path(std::string(256, 'x') + "/file"), path(deep())}) {
    EXPECT_EQ(removal_.removeFile(unusable).error().code, 514) << unusable;
    EXPECT_EQ(removal_.removeItem(unusable).error().code, 514) << unusable;
  }
  EXPECT_EQ(listing(), (Texts{"file", "folder"}));
  EXPECT_EQ(listing("folder"), Texts{"file"});
}

TEST_F(GuardedRemovalTest, RemovesFilesButNoDirectoryAsAFile) {
  box_.write("file", "x");
  box_.makeDirectory("folder");
  EXPECT_TRUE(removal_.removeFile(path("file")));
  EXPECT_FALSE(removal_.removeFile(path("folder")));
  EXPECT_EQ(removal_.removeFile(path("missing")).error().code, 4);
  EXPECT_EQ(removal_.removeFile(path("missing/file")).error().code, 4);
  EXPECT_EQ(listing(), Texts{"folder"});
}

TEST_F(GuardedRemovalTest, NothingLiesBelowAFile) {
  box_.write("file", "x");
  EXPECT_EQ(removal_.removeFile(path("file/below")).error().code, 4);
  EXPECT_EQ(removal_.removeFile(path("file/below/it")).error().code, 4);
}

TEST_F(GuardedRemovalTest, ADirectoryGoesOnlyWhenItHoldsNoMoreThanWasNamed) {
  box_.write("folder/a", "x");
  box_.makeDirectory("folder/b");
  box_.write("folder/c/file", "x");
  EXPECT_FALSE(removal_.removeDirectory(path("folder"), {}).value());
  EXPECT_FALSE(removal_.removeDirectory(path("folder"), {"a", "b", "gone"}).value());
  EXPECT_EQ(listing("folder"), Texts{"c"});
  EXPECT_FALSE(removal_.removeDirectory(path("folder"), {"c"}).value());
  EXPECT_TRUE(removal_.removeDirectory(path("folder/c"), {"file"}).value());
  EXPECT_TRUE(removal_.removeDirectory(path("folder"), {}).value());
  EXPECT_EQ(removal_.removeDirectory(path("folder"), {}).error().code, 4);
}

TEST_F(GuardedRemovalTest, AFolderThatWasRemovedAndMadeAgainIsFoundAgain) {
  box_.write("folder/file", "x");
  ASSERT_TRUE(removal_.removeFile(path("folder/file")));
  ASSERT_TRUE(removal_.removeDirectory(path("folder"), {}).value());
  box_.write("folder/file", "x");
  EXPECT_TRUE(removal_.removeFile(path("folder/file")));
  EXPECT_EQ(listing("folder"), Texts{});
}

TEST_F(GuardedRemovalTest, WorksOnAfterATreeWasRemoved) {
  box_.write("folder/tree/file", "x");
  box_.write("folder/file", "x");
  EXPECT_TRUE(removal_.removeItem(path("folder/tree")));
  EXPECT_TRUE(removal_.removeFile(path("folder/file")));
  EXPECT_EQ(listing("folder"), Texts{});
}

TEST_F(GuardedRemovalTest, FollowsLinksOfTheEffectiveUserOnTheWay) {
  box_.write("real/sub/a", "x");
  box_.write("real/sub/b", "x");
  box_.write("real/sub/c", "x");
  makeLink("absolute", path("real/sub"));
  makeLink("relative", "real/../real/./sub");
  makeLink("twice", "relative");
  EXPECT_TRUE(removal_.removeFile(path("absolute/a")));
  EXPECT_TRUE(removal_.removeItem(path("relative/b")));
  EXPECT_TRUE(removal_.removeFile(path("twice/c")));
  EXPECT_EQ(listing("real/sub"), Texts{});
}

TEST_F(GuardedRemovalTest, FollowsNoLinkOfSomebodyElseOnTheWay) {
  box_.write("real/file", "x");
  makeLink("theirs", "real", kSomebody);
  makeLink("ours", "theirs");
  for (const char* const name : {"theirs/file", "ours/file"}) {
    EXPECT_EQ(removal_.removeFile(path(name)).error().code, 513);
    EXPECT_EQ(removal_.removeItem(path(name)).error().code, 513);
    EXPECT_EQ(removal_.contentsOfDirectory(path(name)).error().code, 513);
    EXPECT_EQ(removal_.typeOf(path(name)).error().code, 513);
  }
  EXPECT_EQ(listing("real"), Texts{"file"});
}

TEST_F(GuardedRemovalTest, LinksWithoutEndAreAnError) {
  makeLink("a", "b");
  makeLink("b", "a");
  EXPECT_EQ(removal_.removeFile(path("a/file")).error().underlyingErrno, ELOOP);
}

TEST_F(GuardedRemovalTest, ALinkOnTheWayThatLeadsNowhereLeavesNothingToRemove) {
  makeLink("link", "nowhere");
  EXPECT_EQ(removal_.removeFile(path("link/file")).error().code, 4);
}
