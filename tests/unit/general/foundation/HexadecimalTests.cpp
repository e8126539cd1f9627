#include <gtest/gtest.h>

#include <array>

#include "general/foundation/Hexadecimal.h"

using namespace foundation::hexadecimal;

namespace {

constexpr std::array kBytes = {std::byte{0x00}, std::byte{0x0a}, std::byte{0x9f}, std::byte{0xff}};

}  // namespace

TEST(Hexadecimal, BytesAreTwoDigitsEachInTheirOrder) {
  EXPECT_EQ(lowerCase(kBytes), "000a9fff");
  EXPECT_EQ(upperCase(kBytes), "000A9FFF");
  EXPECT_EQ(lowerCase({}), "");
}

TEST(Hexadecimal, EveryByteHasDigitsOfItsOwn) {
  for (unsigned value = 0; value <= 0xff; ++value) {
    const std::string digits = lowerCaseByte(static_cast<std::byte>(value));
    EXPECT_EQ(digits.size(), 2U);
    EXPECT_EQ(std::stoul(digits, nullptr, 16), value) << digits;
  }
}

TEST(Hexadecimal, OnlyLowerCaseDigitsAreLowerCase) {
  EXPECT_TRUE(isLowerCase("0123456789abcdef"));
  EXPECT_TRUE(isLowerCase(""));
  EXPECT_FALSE(isLowerCase("0A"));
  EXPECT_FALSE(isLowerCase("0g"));
  EXPECT_FALSE(isLowerCase(" 0"));
  EXPECT_FALSE(isLowerCase("0x"));
}
