#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "tests/architecture/ArchitecturePage.h"

namespace {

using architecture::ArchitecturePage;
using architecture::readArchitecturePage;

const std::string kCircles = "\n| Folder | Circle | Why it stays |\n|---|---|---|\n";

std::string pageOf(const std::string& rows, const std::string& circles = {}) {
  return "# Page\n\nText.\n\n| Folder | Target | Home of | May include |\n|---|---|---|---|\n" + rows + kCircles +
         circles;
}

/// What the reader says about a page that it cannot understand; empty when it understands it.
std::string refusalOf(const std::string& page) {
  try {
    readArchitecturePage(page);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return {};
}

TEST(ArchitecturePage, ReadsFoldersTargetsArrowsAndCircles) {
  const ArchitecturePage page =
      readArchitecturePage(pageOf("| `tools/` | `bundle_tool`, `installer-tool` | the command | `files` |\n"
                                  "| `general/files/` | `files` | files | |\n",
                                  "| `files/` | `A`, `B` | one value in two sources |\n"));
  ASSERT_EQ(page.rooms.size(), 2U);
  EXPECT_EQ(page.rooms[0].folder, "tools");
  EXPECT_EQ(page.rooms[0].targets, (std::vector<std::string>{"bundle_tool", "installer-tool"}));
  EXPECT_EQ(page.rooms[0].mayInclude, std::set<std::string>{"general/files"});
  EXPECT_TRUE(page.rooms[1].mayInclude.empty());
  ASSERT_EQ(page.circles.size(), 1U);
  EXPECT_EQ(page.circles[0].pairs, (std::set<std::string>{"general/files/A", "general/files/B"}));
  EXPECT_EQ(page.circles[0].reason, "one value in two sources");
  EXPECT_EQ(page.roomAt("general/files"), &page.rooms[1]);
  EXPECT_EQ(page.roomAt("general"), nullptr);
}

TEST(ArchitecturePage, HasASketch) {
  const ArchitecturePage page =
      readArchitecturePage(pageOf("| `tools/` | `t` | | |\n") + "\n    a → {b, c} → d ; c → e\n\nNo a → z here.\n");
  EXPECT_EQ(page.sketch, (std::set<std::pair<std::string, std::string>>{
                             {"a", "b"}, {"a", "c"}, {"b", "d"}, {"c", "d"}, {"c", "e"}}));
}

TEST(ArchitecturePage, IsRefusedWithoutItsTables) {
  EXPECT_EQ(refusalOf("# Page\n" + kCircles), "the page has no table with the columns Folder ... May include");
  EXPECT_EQ(refusalOf("| Folder | Target | Home of | May include |\n|---|---|---|---|\n"),
            "the page has no table with the columns Folder ... Why it stays");
}

TEST(ArchitecturePage, IsRefusedWithARowThatCannotBeUnderstood) {
  EXPECT_EQ(refusalOf(pageOf("| `tools/` | `tool` | the command |\n")),
            "a row of the page has not the columns of its table: | `tools/` | `tool` | the command |");
  EXPECT_EQ(refusalOf(pageOf("| tools | `tool` | the command | |\n")),
            "a row of the page names no single folder with a slash at its end: tools");
  EXPECT_EQ(refusalOf(pageOf("| `tools/` | `tool` | the command | `files` |\n")),
            "the row of tools names a folder without a row: files");
  EXPECT_EQ(refusalOf(pageOf("| `a/x/` | `t` | | |\n| `b/x/` | `u` | | |\n")), "two rows of the page are called x");
  EXPECT_EQ(refusalOf(pageOf("| `tools/` | `tool | the command | |\n")), "a backquote is not closed: `tool");
}

TEST(ArchitecturePage, IsRefusedWithACircleThatHasNoReason) {
  EXPECT_EQ(refusalOf(pageOf("| `tools/` | `t` | | |\n", "| `tools/` | `A`, `B` | |\n")),
            "a circle of the page needs a folder with a row, and a reason: `tools/`");
}

}  // namespace
