#include <gtest/gtest.h>

#include "tools/showing/TextTable.h"

namespace {

TEST(TextTable, AlignsColumnsByCharacters) {
  bundletool::TextTable table({"Name", "Size", "Path"}, {1});
  table.add({"ä", "10", "x"});
  table.add({"long name", "7", "y"});
  EXPECT_EQ(table.text(), "Name       Size  Path\nä            10  x\nlong name     7  y\n");
}

}  // namespace
