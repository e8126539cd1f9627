#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "tools/rules/PathRules.h"

namespace bundletool {
namespace {

using namespace std::string_view_literals;

TEST(PathRules, WantInstallPathsThatAreAbsoluteAndInTheirShortestForm) {
  for (const std::string_view path : {"/", "/a", "/a/b c/d", "/..a"}) {
    EXPECT_EQ(faultOfInstallPath(path), std::nullopt) << path;
  }
  for (const std::string_view path : {""sv, "a"sv, "/a/"sv, "//a"sv, "/a/./b"sv, "/a/../b"sv, "/.."sv, "/a\0b"sv}) {
    EXPECT_NE(faultOfInstallPath(path), std::nullopt) << path;
  }
}

TEST(PathRules, SayTheShortestFormOfAPath) {
  EXPECT_EQ(faultOfInstallPath("/a//b/"), "the path is not in its shortest form /a/b");
}

TEST(PathRules, LimitPathsAndTheNamesInThem) {
  const std::string longestName(kLongestName, 'n');
  EXPECT_EQ(faultOfInstallPath("/" + longestName), std::nullopt);
  EXPECT_EQ(faultOfInstallPath("/" + longestName + "n"), "a name in the path is longer than 255 bytes");
  std::string path;
  while (path.size() + 2 <= kLongestPath - 1) {
    path += "/p";
  }
  path += "p";
  ASSERT_EQ(path.size(), kLongestPath);
  EXPECT_EQ(faultOfInstallPath(path), std::nullopt);
  EXPECT_EQ(faultOfInstallPath(path + "p"), "the path is longer than 1023 bytes");
}

TEST(PathRules, LetSourcesBeRelativeButNotClimb) {
  for (const std::string_view path : {"a", "./a//b/", "/a"}) {
    EXPECT_EQ(faultOfSourcePath(path), std::nullopt) << path;
  }
  for (const std::string_view path : {""sv, ".."sv, "a/../b"sv, "a\0"sv}) {
    EXPECT_NE(faultOfSourcePath(path), std::nullopt) << path;
  }
}

TEST(PathRules, WantNamesThatAreSinglePathComponents) {
  for (const auto faultOf : {&faultOfName, &faultOfComponentName, &faultOfProductName}) {
    EXPECT_EQ(faultOf("Endpoint 2.0"), std::nullopt);
    for (const std::string_view name : {""sv, "."sv, ".."sv, "a/b"sv, "/"sv}) {
      EXPECT_NE(faultOf(name), std::nullopt) << name;
    }
    EXPECT_NE(faultOf(std::string(kLongestName + 1, 'n')), std::nullopt);
  }
  EXPECT_EQ(faultOfName(std::string(kLongestName, 'n')), std::nullopt);
}

TEST(PathRules, LeaveTheNameOfTheIndexAndOfTheFolderForThingsInTheMaking) {
  EXPECT_EQ(faultOfName("index"), std::nullopt);
  EXPECT_EQ(faultOfComponentName("iNDEX"), "its manifest would overwrite the index Index.plist");
  EXPECT_NE(faultOfProductName("Temp"), std::nullopt);
}

TEST(PathRules, FoldTheCaseOfAsciiLettersOnly) { EXPECT_EQ(caseFolded("aZ-Ä9"), "az-Ä9"); }

}  // namespace
}  // namespace bundletool
