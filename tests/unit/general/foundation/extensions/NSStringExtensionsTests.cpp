#include <gtest/gtest.h>

#include <set>
#include <string>

#include "general/foundation/extensions/NSStringExtensions.h"

using namespace foundation;
using namespace std::string_literals;

TEST(NSStringExtensions, IdentifiersAreCanonicalRandomAndUpperCase) {
  std::set<std::string> seen;
  for (int round = 0; round < 100; ++round) {
    const std::string text = NSStringExtensions::stringWithUUID();
    ASSERT_EQ(text.size(), 36U);
    for (std::size_t index = 0; index < text.size(); ++index) {
      const bool dash = index == 8 || index == 13 || index == 18 || index == 23;
      EXPECT_TRUE(dash ? text[index] == '-' : "0123456789ABCDEF"s.find(text[index]) != std::string::npos) << text;
    }
    EXPECT_EQ(text[14], '4');
    EXPECT_NE("89AB"s.find(text[19]), std::string::npos);
    seen.insert(text);
  }
  EXPECT_EQ(seen.size(), 100U);
}

TEST(NSStringExtensions, UnsignedLongLongValueOfTheEmptyTextIsZero) {
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue(""), 0U);
}

TEST(NSStringExtensions, UnsignedLongLongValueReadsTheFirstRunOfDigits) {
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("42abc"), 42U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("42 7"), 42U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue(" 7"), 7U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("\t\r\n \xc2\xa0\xe2\x80\xa8"
                                                      "007"),
            7U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("18446744073709551615"), 18446744073709551615U);
}

TEST(NSStringExtensions, UnsignedLongLongValueReadsNoSignNoPrefixAndNoDigitsBehindOtherText) {
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("-5"), 0U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("+5"), 0U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("0x10"), 0U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("a5"), 0U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("\0"
                                                      "5"s),
            0U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("   "), 0U);
}

TEST(NSStringExtensions, UnsignedLongLongValueBeyondTheRangeIsTheLargestNumber) {
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue("18446744073709551616"), 18446744073709551615U);
  EXPECT_EQ(NSStringExtensions::unsignedLongLongValue(std::string(1000, '9')), 18446744073709551615U);
}
