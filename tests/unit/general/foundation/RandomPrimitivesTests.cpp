#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <set>
#include <vector>

#include "general/foundation/RandomPrimitives.h"

using foundation::fillWithRandomBytes;

TEST(RandomPrimitives, EveryCallFillsTheMemoryAnew) {
  std::set<std::array<std::byte, 16>> drawn;
  for (int call = 0; call < 100; ++call) {
    std::array<std::byte, 16> bytes{};
    fillWithRandomBytes(bytes);
    drawn.insert(bytes);
  }
  EXPECT_EQ(drawn.size(), 100U);
}

TEST(RandomPrimitives, LargeMemoryIsFilledToItsEnd) {
  // More than the system gives in one call.
  std::vector<std::byte> bytes(std::size_t{1024} * 1024);
  fillWithRandomBytes(bytes);
  const auto last = std::span(bytes).last(64);
  EXPECT_FALSE(std::ranges::all_of(last, [](std::byte byte) { return byte == std::byte{0}; }));
}

TEST(RandomPrimitives, NothingMoreThanTheMemoryIsTouched) {
  std::array<std::byte, 32> bytes{};
  fillWithRandomBytes(std::span(bytes).first(16));
  EXPECT_TRUE(std::all_of(bytes.begin() + 16, bytes.end(), [](std::byte byte) { return byte == std::byte{0}; }));
  fillWithRandomBytes({});
}
