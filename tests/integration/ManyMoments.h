#pragma once

#include <gtest/gtest.h>

#include <climits>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/support/KilledRun.h"

namespace tests {

/// How many moments of a run are tried, evenly spread over it.
inline constexpr unsigned long kMoments = 14;

/// A test that is run for either has the moment in its name.
inline std::string nameOfMoment(const ::testing::TestParamInfo<support::KillMoment::When>& moment) {
  return moment.param == support::KillMoment::When::Before ? "BeforeIt" : "AfterIt";
}

/// Runs a program again and again and kills it, or a program that it starts, at changes that it makes to what names
/// show or what attributes they have.
/// @param child the program that is killed in place of the one that is run.
/// @param prepare makes the state that each run starts from.
/// @param root gives the root as it is after that.
/// @param look sees the outcome and what is left.
template <class Prepare, class Root, class Look>
void killAtManyMoments(support::KillMoment::When when, const std::optional<std::string>& child,
                       const std::vector<std::string>& arguments, Prepare prepare, Root root, Look look) {
  support::KillMoment moment;
  moment.calls = support::KilledRun::nameAndAttributeChanges();
  moment.when = when;
  moment.child = child;
  moment.number = ULONG_MAX;
  prepare();
  const auto whole = support::KilledRun::run(*root(), arguments, moment);
  ASSERT_EQ(whole.outcome.exitCode, 0) << whole.outcome.standardError;
  ASSERT_GT(whole.callsSeen, 3U);
  std::set<unsigned long> numbers;
  for (unsigned long index = 0; index < kMoments; ++index) {
    numbers.insert(1 + index * (whole.callsSeen - 1) / (kMoments - 1));
  }
  for (const unsigned long number : numbers) {
    SCOPED_TRACE("killed at change " + std::to_string(number) + " of " + std::to_string(whole.callsSeen));
    moment.number = number;
    prepare();
    const auto killed = support::KilledRun::run(*root(), arguments, moment);
    ASSERT_TRUE(killed.reached);
    look(killed.outcome);
    if (::testing::Test::HasFailure()) {
      return;
    }
  }
}

}  // namespace tests
