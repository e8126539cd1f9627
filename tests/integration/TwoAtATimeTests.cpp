#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/integration/PairInRoot.h"

namespace tests {
namespace {

using support::Outcome;
using support::RunningProgram;

/// What administrators do to one product at the same time.
enum class Deed { Install, Upgrade, Downgrade, Removal };

constexpr Deed kDeeds[] = {Deed::Install, Deed::Upgrade, Deed::Downgrade, Deed::Removal};

std::string nameOf(Deed deed) {
  switch (deed) {
    case Deed::Install:
      return "Install";
    case Deed::Upgrade:
      return "Upgrade";
    case Deed::Downgrade:
      return "Downgrade";
    default:
      return "Removal";
  }
}

/// What has to be there for the deed to be what its name says.
Start startOf(Deed deed) {
  switch (deed) {
    case Deed::Install:
      return Start::Nothing;
    case Deed::Downgrade:
      return Start::Second;
    default:
      return Start::First;
  }
}

std::vector<std::string> commandOf(Deed deed) {
  switch (deed) {
    case Deed::Upgrade:
      return PairMachine::installCommand(ProductPair::Version::Second);
    case Deed::Removal:
      return PairMachine::removeCommand();
    default:
      return PairMachine::installCommand(ProductPair::Version::First);
  }
}

std::vector<std::pair<Deed, Deed>> pairs() {
  std::vector<std::pair<Deed, Deed>> all;
  for (const Deed one : kDeeds) {
    for (const Deed other : kDeeds) {
      if (one <= other) {
        all.emplace_back(one, other);
      }
    }
  }
  return all;
}

/// How many rounds are gone: a few here, many in scripts/two-at-a-time.sh.
unsigned long roundsFrom(const char* variable, unsigned long otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoul(text, nullptr, 10);
}

class TogetherOnAProduct : public PairInRoot {
 protected:
  static constexpr const char* kReceipt = "/Library/Application Support/Corvane/Guard/Installer.app";

  void prepare() override {
    PairInRoot::prepare();
    machine().keep(stateNameOf(Start::Nothing));
    for (const Start start : {Start::First, Start::Second}) {
      machine().putBack(stateNameOf(Start::Nothing));
      machine().begin(start);
      machine().keep(stateNameOf(start));
    }
  }

  /// Starts what is to be done within a few moments of each other, and looks at what has come of it.
  void goRound(Start start, const std::vector<Deed>& deeds, unsigned long seed) {
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
    auto runs = startTogether(start, deeds, random);
    for (auto& [deed, run] : runs) {
      expectSensibleEnd(deed, run.wait());
    }
    EXPECT_EQ(whatIsWrong(start, wayThatWasGone(), deeds), "");
  }

  /// The same, but one of them is killed at some moment; then somebody goes the way to its end.
  void goRoundWithOneKilled(Start start, const std::vector<Deed>& deeds, Way way, unsigned long seed) {
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
    auto runs = startTogether(start, deeds, random);
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 200));
    const std::size_t killed = random() % runs.size();
    runs[killed].second.kill(SIGKILL);
    for (std::size_t run = 0; run < runs.size(); ++run) {
      const Outcome outcome = runs[run].second.wait();
      if (run != killed || outcome.signal != SIGKILL) {
        expectSensibleEnd(runs[run].first, outcome);
      }
    }
    const Outcome last = machine().go(way);
    EXPECT_EQ(last.exitCode, 0) << last.standardError;
    EXPECT_EQ(whatIsWrong(start, way, deeds), "");
  }

 private:
  static std::string stateNameOf(Start start) { return std::to_string(static_cast<int>(start)); }

  std::vector<std::pair<Deed, RunningProgram>> startTogether(Start start, const std::vector<Deed>& deeds,
                                                             std::mt19937& random) {
    machine().putBack(stateNameOf(start));
    std::vector<std::pair<Deed, RunningProgram>> runs;
    for (const Deed deed : deeds) {
      // Nothing depends on it: it only lets them meet at other moments each time.
      std::this_thread::sleep_for(std::chrono::milliseconds(random() % 40));
      begin(deed, runs);
    }
    return runs;
  }
  [[nodiscard]] std::string whatIsWrong(Start start, Way way, const std::vector<Deed>& deeds) {
    const bool removes = std::ranges::find(deeds, Deed::Removal) != deeds.end();
    std::istringstream wrong(machine().whatIsWrong(start, way, removes ? Story::DisturbedRemoval : Story::Disturbed));
    std::string text;
    for (std::string line; std::getline(wrong, line);) {
      // An upgrade writes no modifiable files, and what it upgrades may be newly installed after the removal.
      const bool isOfOneVersion = line == std::string(ProductPair::kFirstSettings) + ": missing" ||
                                  line == std::string(ProductPair::kSecondSettings) + ": missing";
      text += removes && isOfOneVersion ? "" : line + "\n";
    }
    return text;
  }
  /// The last of them decides; the receipt tells which one that was.
  [[nodiscard]] Way wayThatWasGone() {
    if (!machine().hasReceipt()) {
      return Way::Removal;
    }
    const bool isSecond = root().exists(std::string(kReceipt) + "/Contents/Install/Manifests/Extra.plist");
    return isSecond ? Way::Second : Way::First;
  }
  void begin(Deed deed, std::vector<std::pair<Deed, RunningProgram>>& runs) {
    try {
      runs.emplace_back(deed, root().start(commandOf(deed)));
    } catch (const support::PrivateRootError&) {
      // A removal is a program of the receipt, which another one may have taken away already.
      EXPECT_EQ(deed, Deed::Removal);
    }
  }
  static void expectSensibleEnd(Deed deed, const Outcome& outcome) {
    EXPECT_EQ(outcome.exitCode, 0) << nameOf(deed) << " " << outcome.standardError;
    EXPECT_FALSE(loggedAnything(outcome, "Error")) << nameOf(deed) << " " << outcome.standardError;
  }
};

TEST_F(TogetherOnAProduct, TwoLeaveTheTreeOfTheReceipt) {
  const unsigned long rounds = roundsFrom("CORVANE_ROUNDS_OF_TWO", 2);
  for (const auto& [one, other] : pairs()) {
    for (unsigned long round = 0; round < rounds && !HasFailure(); ++round) {
      SCOPED_TRACE(nameOf(one) + " and " + nameOf(other) + ", round " + std::to_string(round));
      const bool otherIsFirst = round % 2 != 0;
      Start start = startOf(otherIsFirst ? other : one);
      if (start == Start::Nothing && (one == Deed::Removal || other == Deed::Removal)) {
        // The product has to be there for a removal to be started.
        start = round % 4 < 2 ? Start::First : Start::Second;
      }
      goRound(start, otherIsFirst ? std::vector{other, one} : std::vector{one, other}, round);
    }
  }
}

TEST_F(TogetherOnAProduct, FourLeaveTheTreeOfTheReceipt) {
  const unsigned long rounds = roundsFrom("CORVANE_ROUNDS_OF_MORE", 2);
  for (unsigned long round = 0; round < rounds && !HasFailure(); ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    std::vector<Deed> deeds(std::begin(kDeeds), std::end(kDeeds));
    std::mt19937 random(static_cast<std::mt19937::result_type>(round));
    std::shuffle(deeds.begin(), deeds.end(), random);
    goRound(round % 2 == 0 ? Start::First : Start::Second, deeds, round);
  }
}

TEST_F(TogetherOnAProduct, ThreeOfWhichOneIsKilledLeaveNothingThatTheNextRunDoesNotPutRight) {
  const unsigned long rounds = roundsFrom("CORVANE_ROUNDS_OF_MORE", 3);
  for (unsigned long round = 0; round < rounds && !HasFailure(); ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    constexpr Way kWays[] = {Way::First, Way::Second, Way::Removal};
    const std::vector<Deed> deeds = round % 2 == 0 ? std::vector{Deed::Upgrade, Deed::Downgrade, Deed::Upgrade}
                                                   : std::vector{Deed::Upgrade, Deed::Removal, Deed::Downgrade};
    goRoundWithOneKilled(round % 4 < 2 ? Start::First : Start::Second, deeds, kWays[round % 3], round);
  }
}

}  // namespace
}  // namespace tests
