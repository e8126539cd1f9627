#include <gtest/gtest.h>
#include <unistd.h>

#include "general/foundation/ProcessStartPrimitives.h"
#include "tests/support/EndedProcess.h"

using foundation::startOfProcess;

TEST(ProcessStart, StaysTheSame) {
  const auto start = startOfProcess(getpid());
  ASSERT_TRUE(start);
  EXPECT_GT(*start, 0U);
  EXPECT_EQ(startOfProcess(getpid()), start);
}

TEST(ProcessStart, OfTheFirstProcessIsTheEarliest) {
  const auto first = startOfProcess(1);
  ASSERT_TRUE(first);
  EXPECT_LE(*first, startOfProcess(getpid()).value());
}

TEST(ProcessStart, OfAnEndedProcessIsNotKnown) { EXPECT_EQ(startOfProcess(tests::endedProcess()), std::nullopt); }
