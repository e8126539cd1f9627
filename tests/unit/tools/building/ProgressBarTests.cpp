#include <gtest/gtest.h>

#include <string>

#include "tools/building/ProgressBar.h"

namespace {

TEST(ProgressBar, ShowsPartsOfFilesAndBytesInOneLine) {
  std::string drawn;
  bundletool::ProgressBar bar([&drawn](std::string_view text) { drawn += text; }, 80);
  bar.start(4, 1000);
  bar.addBytes(500);
  bar.addFile();
  bar.addFile();
  const std::string line = bar.line();
  EXPECT_NE(line.find(" 50 %  2 of 4 files, 500 bytes of 1.0 kB"), std::string::npos) << line;
  EXPECT_LT(line.size(), 80U);
  EXPECT_EQ(line.front(), '[');
  bar.erase();
  EXPECT_TRUE(drawn.ends_with("\r\x1b[K"));
}

TEST(ProgressBar, FitsIntoANarrowTerminalAndNeverPassesItsEnd) {
  for (const std::size_t columns : {1U, 2U, 20U, 50U}) {
    bundletool::ProgressBar bar({}, columns);
    bar.start(1, 10);
    bar.addBytes(1000);
    bar.addFile();
    bar.addFile();
    EXPECT_LT(bar.line().size(), columns);
  }
}

TEST(ProgressBar, DrawsNothingWithoutAnOutput) {
  bundletool::ProgressBar bar({}, 80);
  bar.start(0, 0);
  bar.addFile();
  bar.erase();
  EXPECT_NE(bar.line().find("100 %"), std::string::npos);
}

}  // namespace
