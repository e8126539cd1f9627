#include <gtest/gtest.h>

#include <optional>

#include "general/foundation/extensions/NSNumberExtensions.h"

using namespace foundation;

TEST(NSNumberExtensions, BooleansAreNumbersThatKnowTheyAreBooleans) {
  EXPECT_EQ(NSNumberExtensions::booleanTrue().boolean(), true);
  EXPECT_EQ(NSNumberExtensions::booleanFalse().boolean(), false);
}

TEST(NSNumberExtensions, TheTextsTrueYesOnAndOneAreTrueInAnyCase) {
  for (const std::string_view text : {"TRUE", "yes", "On", "1", "tRuE", "YES"}) {
    EXPECT_EQ(NSNumberExtensions::booleanForStringValue(text).boolean(), true) << text;
  }
}

TEST(NSNumberExtensions, TheTextsYAndTwoAndTheEmptyTextAreFalse) {
  for (const std::string_view text : {"y", "2", "", "true ", " 1", "NO", "11"}) {
    EXPECT_EQ(NSNumberExtensions::booleanForStringValue(text).boolean(), false) << text;
  }
}

TEST(NSNumberExtensions, NoTextAtAllIsTrue) {
  EXPECT_EQ(NSNumberExtensions::booleanForStringValue(std::nullopt).boolean(), true);
}
