#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ostream>
#include <string>
#include <thread>
#include <tuple>

#include "general/foundation/Descriptor.h"
#include "tests/integration/PairInRoot.h"

namespace tests {
namespace {

/// How a run does not come to its end, once all files of the new version are in place and its program runs.
enum class Interruption { ProgramFails, Cancelled, Killed };

std::string nameOf(Interruption interruption) {
  switch (interruption) {
    case Interruption::ProgramFails:
      return "its program fails";
    case Interruption::Cancelled:
      return "it is cancelled";
    default:
      return "it is killed";
  }
}

void PrintTo(Interruption interruption, std::ostream* stream) { *stream << nameOf(interruption); }

/// What an administrator tries when a run did not come to its end.
class InterruptedRun : public PairInRoot {
 protected:
  static constexpr const char* kWatcher = "/run/status-watcher";

  void prepare() override {
    PairInRoot::prepare();
    root().copyIn(CORVANE_STATUS_WATCHER, kWatcher);
  }

  void interrupt(Version version, Interruption interruption) {
    if (interruption == Interruption::ProgramFails) {
      root().writeFile(ProductPair::kProgramFails, "");
      EXPECT_EQ(machine().install(version).exitCode, 1);
      ASSERT_TRUE(root().shell("rm " + std::string(ProductPair::kProgramFails)).succeeded());
      return;
    }
    ASSERT_TRUE(root().shell("mkfifo " + std::string(ProductPair::kProgramWaits)).succeeded());
    auto command = PairMachine::installCommand(version);
    command.emplace_back("--ui");
    auto engine = root().start(command);
    // The engine says that it launches the program before it does.
    const foundation::Descriptor gate = gateOfWaitingProgram(engine);
    ASSERT_TRUE(gate.isOpen()) << engine.standardErrorSoFar();
    if (interruption == Interruption::Killed) {
      engine.kill(SIGKILL);
      static_cast<void>(engine.wait());
    } else {
      tell(engine, "cancel");
    }
    ASSERT_EQ(write(gate.number(), "\n", 1), 1);
    if (interruption == Interruption::Cancelled) {
      ASSERT_TRUE(engine.waitForStandardError("self.runLoopShouldKeepRunning = 1")) << engine.standardErrorSoFar();
      tell(engine, "shutdown");
      EXPECT_EQ(engine.wait().exitCode, 21);
    }
    ASSERT_TRUE(root().shell("rm " + std::string(ProductPair::kProgramWaits)).succeeded());
    machine().waitUntilQuiet();
  }
  /// Open once the program waits at it; not open when the engine ended before.
  foundation::Descriptor gateOfWaitingProgram(support::RunningProgram& engine) {
    const std::string path = root().path(ProductPair::kProgramWaits);
    while (true) {
      foundation::Descriptor gate(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
      if (gate.isOpen() || errno != ENXIO || !engine.isRunning()) {
        return gate;
      }
      std::this_thread::yield();
    }
  }
  void expectWholeAfter(Start start, Way way) {
    SCOPED_TRACE("then " + tests::nameOf(way));
    const auto outcome = machine().go(way);
    EXPECT_EQ(outcome.exitCode, 0) << errorsOf(outcome);
    EXPECT_EQ(machine().whatIsWrong(start, way, Story::Disturbed), "");
  }
  void expectWholeAfterEachWay(Start start) {
    machine().keep("left");
    for (const Way way : {Way::First, Way::Second, Way::Removal}) {
      machine().putBack("left");
      expectWholeAfter(start, way);
    }
  }

 private:
  void tell(const support::RunningProgram& engine, const std::string& what) {
    EXPECT_EQ(root().run({kWatcher, std::to_string(engine.process()), what}).standardOutput, what + " sent\n");
  }
};

class InterruptedInstall : public InterruptedRun,
                           public ::testing::WithParamInterface<std::tuple<Start, Interruption>> {};

TEST_P(InterruptedInstall, IsFollowedByWhateverVersionIsWantedOrByARemoval) {
  const auto [start, interruption] = GetParam();
  SCOPED_TRACE("from " + tests::nameOf(start) + ", " + nameOf(interruption));
  machine().begin(start);
  interrupt(start == Start::Second ? Version::First : Version::Second, interruption);
  expectWholeAfterEachWay(start);
}

std::string nameOfStory(const ::testing::TestParamInfo<std::tuple<Start, Interruption>>& story) {
  const char* starts[] = {"FromNothing", "FromTheFirstVersion", "FromTheSecondVersion", "FromTheOlderProduct"};
  const char* ends[] = {"WhoseProgramFails", "Cancelled", "Killed"};
  const auto [start, interruption] = story.param;
  return std::string(starts[static_cast<int>(start)]) + ends[static_cast<int>(interruption)];
}

INSTANTIATE_TEST_SUITE_P(
    FromEveryStart, InterruptedInstall,
    ::testing::Combine(::testing::Values(Start::Nothing, Start::First, Start::Second, Start::Classic),
                       ::testing::Values(Interruption::ProgramFails, Interruption::Cancelled, Interruption::Killed)),
    nameOfStory);

/// The older product is replaced by a bundle of which one file is damaged.
class InterruptedReplacement : public InterruptedRun {
 protected:
  void prepare() override {
    InterruptedRun::prepare();
    machine().begin(Start::Classic);
    const BundleMaker& bundle = pair().bundle(Version::Second);
    const std::string payload = bundle.payloadPath("Core", "/Library/Guard/second-name").substr(bundle.path().size());
    damaged_ = PairMachine::bundleInRoot(Version::Second) + payload;
  }
  void failByAWrongChecksum() {
    const std::string good = root().readFile(damaged_);
    root().writeFile(damaged_, "forged");
    EXPECT_EQ(machine().install(Version::Second).exitCode, 1);
    root().writeFile(damaged_, good);
    EXPECT_FALSE(root().exists(ProductPair::kClassicProgram)) << "the older product should not be detected any more";
    EXPECT_EQ(machine().whatIsTorn(Start::Classic, false), "");
  }

 private:
  std::string damaged_;
};

TEST_F(InterruptedReplacement, ThatFailedByAWrongChecksumKeepsTheUsersFiles) {
  failByAWrongChecksum();
  expectWholeAfterEachWay(Start::Classic);
}

TEST_F(InterruptedReplacement, ThatFailedAgainAndAgainKeepsTheUsersFiles) {
  failByAWrongChecksum();
  failByAWrongChecksum();
  failByAWrongChecksum();
  expectWholeAfter(Start::Classic, Way::Second);
}

TEST_F(InterruptedReplacement, WhatTheUserEditsBetweenTheRunsCountsMoreThanItsCopy) {
  interrupt(Version::Second, Interruption::Killed);
  ASSERT_TRUE(machine().settingsAreTheUsers());
  machine().editSettings("edited between the two runs");
  expectWholeAfter(Start::Classic, Way::Second);
}

TEST_F(InterruptedReplacement, WhatTheUserWritesAnewBetweenTheRunsCountsMoreThanItsCopy) {
  failByAWrongChecksum();
  ASSERT_FALSE(machine().settingsAreTheUsers());
  machine().editSettings("written anew between the two runs");
  expectWholeAfter(Start::Classic, Way::Second);
}

}  // namespace
}  // namespace tests
