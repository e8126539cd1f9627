#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "general/terminal/PrintableText.h"

namespace {

TEST(PrintableText, KeepsWhatPrintsAndEscapesTheRest) {
  EXPECT_EQ(terminal::printable("Größe 漢字 😀"), "Größe 漢字 😀");
  EXPECT_EQ(terminal::printable(std::string("a\0b", 3)), "a\\x00b");
  EXPECT_EQ(terminal::printable("\t\r\n"), "\\x09\\x0d\\x0a");
  EXPECT_EQ(terminal::printable("\xff\xc0\x80\xed\xa0\x80"), "\\xff\\xc0\\x80\\xed\\xa0\\x80");
  EXPECT_EQ(terminal::printable("\xe6\xbc"), "\\xe6\\xbc") << "cut short";
  EXPECT_EQ(terminal::printable("\xc2\x85"), "\\u{85}");
}

TEST(PrintableText, GivesSizesForPeople) {
  EXPECT_EQ(terminal::sizeText(1), "1 byte");
  EXPECT_EQ(terminal::sizeText(999), "999 bytes");
  EXPECT_EQ(terminal::sizeText(1000), "1.0 kB");
  EXPECT_EQ(terminal::sizeText(999999), "1.0 MB");
  EXPECT_EQ(terminal::sizeText(UINT64_MAX), "18446.7 PB");
}

}  // namespace
