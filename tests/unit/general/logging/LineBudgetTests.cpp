#include <gtest/gtest.h>

#include "general/logging/LineBudget.h"

namespace logging {
namespace {

class LineBudgetTest : public ::testing::Test {
 protected:
  int takenBy(std::uint32_t user, int wanted) {
    int taken = 0;
    for (int i = 0; i < wanted; ++i) {
      taken += budget_.take(user) ? 1 : 0;
    }
    return taken;
  }

  LineBudget::Clock::time_point now_;
  LineBudget budget_{{10, 2}, {25, 4}, [this] { return now_; }};
};

TEST_F(LineBudgetTest, GivesEachUserSoManyAtOnceAndCountsTheRest) {
  EXPECT_EQ(takenBy(501, 100), 10);
  EXPECT_EQ(budget_.takeLeftOut(), 90U);
  EXPECT_EQ(budget_.takeLeftOut(), 0U);
  EXPECT_EQ(takenBy(502, 5), 5);
  EXPECT_EQ(budget_.takeLeftOut(), 0U);
}

TEST_F(LineBudgetTest, GivesAllTogetherNoMoreThanTheirShare) {
  EXPECT_EQ(takenBy(501, 10) + takenBy(502, 10) + takenBy(503, 10), 25);
  EXPECT_EQ(takenBy(0, 10), 0);
  EXPECT_EQ(budget_.takeLeftOut(), 15U);
}

TEST_F(LineBudgetTest, FillsUpWithTimeAndNotBeyond) {
  EXPECT_EQ(takenBy(501, 20), 10);
  now_ += std::chrono::seconds(3);
  EXPECT_EQ(takenBy(501, 20), 6);
  now_ += std::chrono::hours(1);
  EXPECT_EQ(takenBy(501, 20), 10);
}

TEST_F(LineBudgetTest, ForgetsManyUsersOnlyOnceTheyHaveTheirWholeShareAgain) {
  for (std::uint32_t user = 1; user <= 200; ++user) {
    now_ += std::chrono::seconds(10);
    EXPECT_EQ(takenBy(user, 11), 10) << user;
  }
  // The last of them is remembered.
  EXPECT_EQ(takenBy(200, 1), 0);
}

}  // namespace
}  // namespace logging
