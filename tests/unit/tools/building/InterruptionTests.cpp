#include <gtest/gtest.h>

#include <csignal>

#include "tools/building/Interruption.h"

namespace {

using bundletool::Interruption;

TEST(Interruption, NotesEverySignalThatAsksAProcessToEnd) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const Interruption interruption;
    EXPECT_FALSE(Interruption::requested()) << signal;
    ASSERT_EQ(std::raise(signal), 0);
    EXPECT_TRUE(Interruption::requested()) << signal;
  }
}

TEST(Interruption, IsForgottenWithTheOneThatNotedIt) {
  {
    const Interruption interruption;
    ASSERT_EQ(std::raise(SIGINT), 0);
  }
  EXPECT_FALSE(Interruption::requested());
}

TEST(Interruption, GivesTheSignalsBackToWhoeverHadThem) {
  const auto before = std::signal(SIGINT, SIG_DFL);
  { const Interruption interruption; }
  EXPECT_EQ(std::signal(SIGINT, before), SIG_DFL);
}

TEST(Interruption, LeavesAnIgnoredSignalIgnored) {
  const auto before = std::signal(SIGHUP, SIG_IGN);
  {
    const Interruption interruption;
    ASSERT_EQ(std::raise(SIGHUP), 0);
    EXPECT_FALSE(Interruption::requested());
  }
  EXPECT_EQ(std::signal(SIGHUP, before), SIG_IGN);
}

}  // namespace
