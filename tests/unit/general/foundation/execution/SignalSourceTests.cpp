#include <gtest/gtest.h>

#include <csignal>
#include <vector>

#include "general/foundation/execution/SignalSource.h"

namespace {

using foundation::RunLoop;
using foundation::SignalSource;

constexpr auto kForEver = RunLoop::Clock::time_point::max();

TEST(SignalSource, DeliversSignalsInTheirOrderInTurnsOfTheLoop) {
  RunLoop loop;
  std::vector<int> heard;
  const SignalSource source(loop, {SIGUSR1, SIGUSR2}, [&](int signal) { heard.push_back(signal); });
  raise(SIGUSR2);
  raise(SIGUSR1);
  EXPECT_TRUE(heard.empty());
  while (heard.size() < 2) {
    ASSERT_TRUE(loop.runUntil(kForEver));
  }
  EXPECT_EQ(heard, (std::vector<int>{SIGUSR2, SIGUSR1}));
}

TEST(SignalSource, LeavesSignalsIgnoredThatWereIgnored) {
  const auto earlier = std::signal(SIGUSR1, SIG_IGN);
  {
    RunLoop loop;
    bool heard = false;
    const SignalSource source(loop, {SIGUSR1}, [&](int /*signal*/) { heard = true; });
    raise(SIGUSR1);
    loop.runUntil(RunLoop::Clock::now());
    EXPECT_FALSE(heard);
  }
  EXPECT_EQ(std::signal(SIGUSR1, earlier), SIG_IGN);
}

TEST(SignalSource, GivesSignalsBackToThoseWhoHandledThemBefore) {
  static volatile std::sig_atomic_t handled = 0;
  const auto earlier = std::signal(SIGUSR1, [](int /*signal*/) { handled = 1; });
  RunLoop loop;
  { const SignalSource source(loop, {SIGUSR1}, {}); }
  EXPECT_FALSE(loop.runUntil(RunLoop::Clock::now())) << "nothing is left in the loop";
  raise(SIGUSR1);
  EXPECT_EQ(handled, 1);
  static_cast<void>(std::signal(SIGUSR1, earlier));
}

}  // namespace
