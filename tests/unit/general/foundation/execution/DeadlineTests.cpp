#include <gtest/gtest.h>

#include <chrono>
#include <limits>

#include "general/foundation/execution/Deadline.h"

namespace {

using foundation::millisecondsUntil;
using Clock = std::chrono::steady_clock;

TEST(Deadline, ThatHasComeLeavesNoTime) {
  EXPECT_EQ(millisecondsUntil(Clock::now()), 0);
  EXPECT_EQ(millisecondsUntil(Clock::now() - std::chrono::hours(1)), 0);
  EXPECT_EQ(millisecondsUntil(Clock::time_point::min()), 0);
}

TEST(Deadline, ThatIsToComeIsNeverWaitedForTooShortly) {
  const auto deadline = Clock::now() + std::chrono::hours(1) - std::chrono::microseconds(1);
  const int left = millisecondsUntil(deadline);
  EXPECT_GT(left, 0);
  EXPECT_LE(left, 3600 * 1000);
  EXPECT_GE(Clock::now() + std::chrono::milliseconds(left), deadline);
}

TEST(Deadline, BeyondWhatPollTakesIsCut) {
  EXPECT_EQ(millisecondsUntil(Clock::time_point::max()), std::numeric_limits<int>::max());
}

}  // namespace
