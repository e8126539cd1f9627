#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "general/foundation/extensions/NSDictionaryExtensions.h"

namespace {

using foundation::PropertyList;

bool reading(const PropertyList& value) {
  return foundation::NSDictionaryExtensions::boolForKey(PropertyList::dictionary({{"key", value}}), "key");
}

TEST(BoolForKey, OfTheTextYesIsTrue) { EXPECT_TRUE(reading("YES")); }

TEST(BoolForKey, OfAnArrayIsFalse) { EXPECT_FALSE(reading(PropertyList(PropertyList::Array{true}))); }

TEST(BoolForKey, OfAMissingValueIsFalse) {
  EXPECT_FALSE(reading(PropertyList()));
  EXPECT_FALSE(foundation::NSDictionaryExtensions::boolForKey(PropertyList(), "key"));
  EXPECT_FALSE(foundation::NSDictionaryExtensions::boolForKey(PropertyList(true), "key"));
}

TEST(BoolForKey, OfANumberIsWhetherItDiffersFromZero) {
  EXPECT_TRUE(reading(true));
  EXPECT_FALSE(reading(false));
  EXPECT_TRUE(reading(-1));
  EXPECT_FALSE(reading(0));
  EXPECT_TRUE(reading(0.25));
  EXPECT_FALSE(reading(-0.0));
  EXPECT_TRUE(reading(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_TRUE(reading(std::int64_t{1} << 40));
}

TEST(BoolForKey, OfATextDependsOnItsFirstLetterOrDigit) {
  for (const char* text : {"Y", "yes", "T", "true", "1", "9x", " \t YES", "+1", "-1", "-005", "+00y", "0t"}) {
    EXPECT_TRUE(reading(text)) << text;
  }
  for (const char* text : {"", " ", "0", "00", "-", "+", "--1", "+ 1", "NO", "on", "false", "x1", "0.5", "0 1"}) {
    EXPECT_FALSE(reading(text)) << text;
  }
}

TEST(BoolForKey, OfDataDatesAndDictionariesIsFalse) {
  const std::byte bytes[] = {std::byte{'Y'}};
  EXPECT_FALSE(reading(PropertyList::data(bytes)));
  EXPECT_FALSE(reading(PropertyList::date(1)));
  EXPECT_FALSE(reading(PropertyList::dictionary({{"a", true}})));
}

}  // namespace
