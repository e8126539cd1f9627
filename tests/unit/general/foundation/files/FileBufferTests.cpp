#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "general/foundation/files/FileBuffer.h"

using foundation::FileBuffer;

TEST(FileBuffer, GrowsAndKeepsWhatIsThere) {
  FileBuffer buffer;
  ASSERT_TRUE(buffer.reserve(10));
  ASSERT_GE(buffer.memory().size(), 10U);
  buffer.memory()[9] = std::byte{42};
  ASSERT_TRUE(buffer.reserve(1U << 20U));
  EXPECT_GE(buffer.memory().size(), 1U << 20U);
  EXPECT_EQ(buffer.memory()[9], std::byte{42});
}

TEST(FileBuffer, DoesNotMoveWhenThereIsRoom) {
  FileBuffer buffer;
  ASSERT_TRUE(buffer.reserve(1U << 20U));
  const std::byte* const before = buffer.memory().data();
  ASSERT_TRUE(buffer.reserve(1000));
  EXPECT_EQ(buffer.memory().data(), before);
}

TEST(FileBuffer, GivesMemoryBack) {
  FileBuffer buffer;
  ASSERT_TRUE(buffer.reserve(1U << 20U));
  buffer.memory()[0] = std::byte{7};
  buffer.shrinkTo(1);
  EXPECT_LT(buffer.memory().size(), 1U << 20U);
  ASSERT_GE(buffer.memory().size(), 1U);
  EXPECT_EQ(buffer.memory()[0], std::byte{7});
  buffer.shrinkTo(0);
  EXPECT_TRUE(buffer.memory().empty());
  EXPECT_TRUE(buffer.reserve(1));
}

TEST(FileBuffer, RefusesWhatTheSystemCannotGive) {
  FileBuffer buffer;
  ASSERT_TRUE(buffer.reserve(100));
  buffer.memory()[99] = std::byte{1};
  EXPECT_FALSE(buffer.reserve(std::numeric_limits<std::size_t>::max()));
  EXPECT_FALSE(buffer.reserve(std::size_t{1} << 60U));
  EXPECT_EQ(buffer.memory()[99], std::byte{1});
}

TEST(FileBuffer, MovesItsMemoryAlong) {
  FileBuffer first;
  ASSERT_TRUE(first.reserve(100));
  const std::byte* const memory = first.memory().data();
  FileBuffer second(std::move(first));
  EXPECT_EQ(second.memory().data(), memory);
  FileBuffer third;
  ASSERT_TRUE(third.reserve(5));
  third = std::move(second);
  EXPECT_EQ(third.memory().data(), memory);
}
