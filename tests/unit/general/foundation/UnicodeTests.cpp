#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "general/foundation/Unicode.h"

using namespace foundation::unicode;
using namespace std::string_literals;

namespace {

// The first and the last character of every length in UTF-8, and those around the surrogates.
const std::array<std::pair<char32_t, std::string>, 10> kBoundaries = {{{0, "\0"s},
                                                                       {0x7F, "\x7F"},
                                                                       {0x80, "\xC2\x80"},
                                                                       {0x7FF, "\xDF\xBF"},
                                                                       {0x800, "\xE0\xA0\x80"},
                                                                       {0xD7FF, "\xED\x9F\xBF"},
                                                                       {0xE000, "\xEE\x80\x80"},
                                                                       {0xFFFF, "\xEF\xBF\xBF"},
                                                                       {0x10000, "\xF0\x90\x80\x80"},
                                                                       {0x10FFFF, "\xF4\x8F\xBF\xBF"}}};

std::optional<std::string> fromUtf16(std::string_view bytes, ByteOrder order) {
  return utf8FromUtf16(std::as_bytes(std::span(bytes)), order);
}

}  // namespace

TEST(Unicode, CharactersOfEveryLengthAreReadAndWritten) {
  for (const auto& [codePoint, text] : kBoundaries) {
    const auto decoded = firstCodePoint(text + "x");
    ASSERT_TRUE(decoded) << text;
    EXPECT_EQ(decoded->codePoint, codePoint);
    EXPECT_EQ(decoded->length, text.size());
    std::string written = "a";
    appendUtf8(written, codePoint);
    EXPECT_EQ(written, "a" + text);
    EXPECT_TRUE(isValidUtf8(text + text));
  }
}

TEST(Unicode, WhatIsNoUtf8HasNoFirstCharacter) {
  const std::array<std::string_view, 12> broken = {"",                  // nothing
                                                   "\x80",              // a byte that only continues
                                                   "\xC2",              // cut
                                                   "\xE0\xA0",          // cut later
                                                   "\xC2x",             // not continued
                                                   "\xC1\xBF",          // two bytes for one
                                                   "\xE0\x9F\xBF",      // three for two
                                                   "\xF0\x8F\xBF\xBF",  // four for three
                                                   "\xED\xA0\x80",      // the first surrogate
                                                   "\xED\xBF\xBF",      // the last surrogate
                                                   "\xF4\x90\x80\x80",  // beyond the last character
                                                   "\xFF"};
  for (const std::string_view text : broken) {
    EXPECT_FALSE(firstCodePoint(text)) << testing::PrintToString(text);
  }
  EXPECT_TRUE(isValidUtf8(""));
  EXPECT_FALSE(isValidUtf8("good, then \xFF"));
}

TEST(Unicode, Utf16OfBothByteOrdersBecomesUtf8) {
  EXPECT_EQ(fromUtf16("\0a\x20\xAC\xD8\x3D\xDE\x00"s, ByteOrder::BigEndian), "a€😀");
  EXPECT_EQ(fromUtf16("a\0\xAC\x20\x3D\xD8\x00\xDE"s, ByteOrder::LittleEndian), "a€😀");
  EXPECT_EQ(fromUtf16("", ByteOrder::BigEndian), "");
}

TEST(Unicode, Utf16WithHalfAUnitOrALoneSurrogateIsNone) {
  EXPECT_FALSE(fromUtf16("\0a\0"s, ByteOrder::BigEndian));
  EXPECT_FALSE(fromUtf16("\xD8\x3D"s, ByteOrder::BigEndian));
  EXPECT_FALSE(fromUtf16("\xD8\x3D\0a"s, ByteOrder::BigEndian));
  EXPECT_FALSE(fromUtf16("\xDE\x00"s, ByteOrder::BigEndian));
}

TEST(Unicode, Utf8BecomesUtf16AndEveryBrokenByteAReplacement) {
  EXPECT_EQ(utf16FromUtf8("a€😀"), u"a€😀");
  EXPECT_EQ(utf16FromUtf8("a\xE2\x82z"), u"a\xFFFD\xFFFDz");
  EXPECT_EQ(utf16FromUtf8(""), u"");
}
