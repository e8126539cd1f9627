#include <gtest/gtest.h>

#include <climits>

#include "general/foundation/Paths.h"

using namespace foundation;
using namespace std::string_literals;

TEST(Paths, AppendPutsOneSlashBetween) {
  EXPECT_EQ(paths::append("/a", "b"), "/a/b");
  EXPECT_EQ(paths::append("/a/", "b"), "/a/b");
  EXPECT_EQ(paths::append("/a//", "/b"), "/a/b");
  EXPECT_EQ(paths::append("/", "b"), "/b");
  EXPECT_EQ(paths::append("/", "/b/c"), "/b/c");
  EXPECT_EQ(paths::append("a", "b/c"), "a/b/c");
}

TEST(Paths, AppendDropsTrailingSlashesOfTheResult) {
  EXPECT_EQ(paths::append("/a", "b/"), "/a/b");
  EXPECT_EQ(paths::append("/a", "b///"), "/a/b");
}

TEST(Paths, AppendingNothingGivesThePath) {
  EXPECT_EQ(paths::append("/a", ""), "/a");
  EXPECT_EQ(paths::append("/a/", ""), "/a");
  EXPECT_EQ(paths::append("/a", "/"), "/a");
  EXPECT_EQ(paths::append("/", ""), "/");
  EXPECT_EQ(paths::append("/", "/"), "/");
  EXPECT_EQ(paths::append("", ""), "");
}

TEST(Paths, AppendingToNothingGivesTheComponent) {
  EXPECT_EQ(paths::append("", "b"), "b");
  EXPECT_EQ(paths::append("", "/b/"), "/b");
  EXPECT_EQ(paths::append("", "/"), "/");
}

TEST(Paths, AppendKeepsDotsAndNuls) {
  EXPECT_EQ(paths::append("/a", "../b"), "/a/../b");
  EXPECT_EQ(paths::append("/a", "b\0c"s), "/a/b\0c"s);
}

TEST(Paths, AppendExtensionDropsTrailingSlashesFirst) {
  EXPECT_EQ(paths::appendExtension("/a/b", "plist"), "/a/b.plist");
  EXPECT_EQ(paths::appendExtension("/a/b/", "plist"), "/a/b.plist");
  EXPECT_EQ(paths::appendExtension("b.c", "plist"), "b.c.plist");
}

TEST(Paths, WithoutANameThereIsNothingToExtend) {
  EXPECT_EQ(paths::appendExtension("", "plist"), "");
  EXPECT_EQ(paths::appendExtension("/", "plist"), "/");
}

TEST(Paths, DeleteLastComponent) {
  EXPECT_EQ(paths::deleteLastComponent("/a/b"), "/a");
  EXPECT_EQ(paths::deleteLastComponent("/a/b/"), "/a");
  EXPECT_EQ(paths::deleteLastComponent("/a//b"), "/a");
  EXPECT_EQ(paths::deleteLastComponent("/a"), "/");
  EXPECT_EQ(paths::deleteLastComponent("//a"), "/");
  EXPECT_EQ(paths::deleteLastComponent("a/b"), "a");
  EXPECT_EQ(paths::deleteLastComponent("a"), "");
  EXPECT_EQ(paths::deleteLastComponent("/"), "/");
  EXPECT_EQ(paths::deleteLastComponent("///"), "/");
  EXPECT_EQ(paths::deleteLastComponent(""), "");
}

TEST(Paths, LastComponent) {
  EXPECT_EQ(paths::lastComponent("/a/b"), "b");
  EXPECT_EQ(paths::lastComponent("/a/b//"), "b");
  EXPECT_EQ(paths::lastComponent("a"), "a");
  EXPECT_EQ(paths::lastComponent("/"), "/");
  EXPECT_EQ(paths::lastComponent("///"), "/");
  EXPECT_EQ(paths::lastComponent(""), "");
  EXPECT_EQ(paths::lastComponent("/a/.."), "..");
}

TEST(Paths, DeleteExtension) {
  EXPECT_EQ(paths::deleteExtension("svcd.plist"), "svcd");
  EXPECT_EQ(paths::deleteExtension("/a.b/svcd.plist"), "/a.b/svcd");
  EXPECT_EQ(paths::deleteExtension("com.corvane.agent.plist"), "com.corvane.agent");
  EXPECT_EQ(paths::deleteExtension("/a.b/c"), "/a.b/c");
  EXPECT_EQ(paths::deleteExtension("/a/b.c/"), "/a/b");
  EXPECT_EQ(paths::deleteExtension("a."), "a");
  EXPECT_EQ(paths::deleteExtension(""), "");
}

TEST(Paths, ANameThatBeginsWithItsOnlyDotHasNoExtension) {
  EXPECT_EQ(paths::deleteExtension(".hidden"), ".hidden");
  EXPECT_EQ(paths::deleteExtension("/a/.hidden"), "/a/.hidden");
  EXPECT_EQ(paths::deleteExtension("/a/.hidden.plist"), "/a/.hidden");
  EXPECT_EQ(paths::deleteExtension("/a/.."), "/a/..");
  EXPECT_EQ(paths::deleteExtension("."), ".");
}

TEST(Paths, Components) {
  using Texts = std::vector<std::string>;
  EXPECT_EQ(paths::components("/Library/LaunchDaemons/svcd.plist"),
            (Texts{"/", "Library", "LaunchDaemons", "svcd.plist"}));
  EXPECT_EQ(paths::components("//a//b/"), (Texts{"/", "a", "b"}));
  EXPECT_EQ(paths::components("a/b"), (Texts{"a", "b"}));
  EXPECT_EQ(paths::components("/"), (Texts{"/"}));
  EXPECT_EQ(paths::components(""), Texts{});
}

TEST(Paths, StandardizeFoldsAbsolutePaths) {
  EXPECT_EQ(paths::standardize("/a/b/Contents/MacOS/X/../../../"), "/a/b");
  EXPECT_EQ(paths::standardize("/a/./b//c/"), "/a/b/c");
  EXPECT_EQ(paths::standardize("/a/b/../../c"), "/c");
  EXPECT_EQ(paths::standardize("/.."), "/");
  EXPECT_EQ(paths::standardize("/../../a"), "/a");
  EXPECT_EQ(paths::standardize("/a/.."), "/");
  EXPECT_EQ(paths::standardize("///"), "/");
  EXPECT_EQ(paths::standardize("/a/...b/..c"), "/a/...b/..c");
}

TEST(Paths, StandardizeKeepsTheClimbsOfARelativePath) {
  EXPECT_EQ(paths::standardize("../a/../b/"), "../a/../b");
  EXPECT_EQ(paths::standardize("./a/./b"), "a/b");
  EXPECT_EQ(paths::standardize("."), ".");
  EXPECT_EQ(paths::standardize("./"), ".");
  EXPECT_EQ(paths::standardize(""), "");
}

TEST(Paths, OnlyALeadingSlashMakesAPathAbsolute) {
  EXPECT_TRUE(paths::isAbsolute("/"));
  EXPECT_TRUE(paths::isAbsolute("/a"));
  EXPECT_FALSE(paths::isAbsolute("a/b"));
  EXPECT_FALSE(paths::isAbsolute("~/a"));
  EXPECT_FALSE(paths::isAbsolute(""));
}

TEST(Paths, AreWithinTheLimitsAsAWholeAndInEachName) {
  EXPECT_TRUE(paths::isWithinLimits("/"));
  EXPECT_TRUE(paths::isWithinLimits("/a/" + std::string(255, 'x') + "/b"));
  EXPECT_FALSE(paths::isWithinLimits("/a/" + std::string(256, 'x') + "/b"));
  std::string longest;
  while (longest.size() < PATH_MAX - 1) {
    longest += longest.size() % 2 == 0 ? '/' : 'x';
  }
  EXPECT_TRUE(paths::isWithinLimits(longest));
  EXPECT_FALSE(paths::isWithinLimits(longest + "x"));
}

TEST(Paths, ASingleComponentIsTheNameOfOneItem) {
  EXPECT_TRUE(paths::isSingleComponent("a"));
  EXPECT_TRUE(paths::isSingleComponent("..."));
  EXPECT_TRUE(paths::isSingleComponent(".a"));
  EXPECT_TRUE(paths::isSingleComponent(std::string(255, 'x')));
  EXPECT_FALSE(paths::isSingleComponent(std::string(256, 'x')));
  EXPECT_FALSE(paths::isSingleComponent(""));
  EXPECT_FALSE(paths::isSingleComponent("."));
  EXPECT_FALSE(paths::isSingleComponent(".."));
  EXPECT_FALSE(paths::isSingleComponent("a/b"));
  EXPECT_FALSE(paths::isSingleComponent("a/"));
  EXPECT_FALSE(paths::isSingleComponent("a\0b"s));
}

TEST(Paths, ResolvingLeavesAbsolutePathsAsTheyStandAndFoldsRelativeOnes) {
  EXPECT_EQ(paths::resolve("/base", "/a/../b/"), "/a/../b/");
  EXPECT_EQ(paths::resolve("/base/x", "../y/./z"), "/base/y/z");
}

TEST(Paths, ClimbsOnlyWithAComponentOfTwoDots) {
  EXPECT_TRUE(paths::climbs(".."));
  EXPECT_TRUE(paths::climbs("/a/../b"));
  EXPECT_TRUE(paths::climbs("a/.."));
  EXPECT_FALSE(paths::climbs("/a/..b/c../..."));
  EXPECT_FALSE(paths::climbs(""));
}
