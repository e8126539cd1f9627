#include <array>
#include <climits>
#include <cstdlib>
#include <optional>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tests/integration/PairInRoot.h"
#include "tests/support/KilledRun.h"

namespace tests {
namespace {

using support::KilledRun;
using support::KillMoment;

/// A run that is killed: what it starts from and what it does.
struct Flow {
  const char* name;
  Start start;
  Way way;
};

void PrintTo(const Flow& flow, std::ostream* stream) { *stream << flow.name; }

constexpr Flow kFlows[] = {
    {"Install", Start::Nothing, Way::First},           {"Upgrade", Start::First, Way::Second},
    {"Downgrade", Start::Second, Way::First},          {"Repair", Start::First, Way::First},
    {"Removal", Start::First, Way::Removal},           {"CrossGrade", Start::Classic, Way::Second},
    {"RemovalOfTheNewer", Start::Second, Way::Removal}};

constexpr std::array kWays{Way::First, Way::Second, Way::Removal};

bool wantsAll() {
  const char* wanted = std::getenv("CORVANE_MOMENTS");
  return wanted != nullptr && std::string_view(wanted) == "all";
}

/// How many moments of a flow are tried, evenly spread over it; all of them with CORVANE_MOMENTS=all.
std::set<unsigned long> moments(unsigned long calls, unsigned long sample) {
  std::set<unsigned long> numbers;
  if (wantsAll()) {
    for (unsigned long number = 1; number <= calls; ++number) {
      numbers.insert(number);
    }
    return numbers;
  }
  for (unsigned long index = 0; index < sample; ++index) {
    numbers.insert(1 + index * (calls - 1) / (sample - 1));
  }
  return numbers;
}

/// Kills a run at changes that it makes, and goes each of three ways from what is left.
class KilledPair : public PairInRoot, public ::testing::WithParamInterface<Flow> {
 protected:
  static constexpr unsigned long kSample = 5;
  static constexpr unsigned long kSampleOfRecoveries = 3;

  [[nodiscard]] std::optional<std::string> whyImpossible() override {
    const auto reason = PairInRoot::whyImpossible();
    return reason ? reason : KilledRun::whyImpossible();
  }
  [[nodiscard]] static bool isRemoval() { return GetParam().way == Way::Removal; }
  [[nodiscard]] static Story story() { return isRemoval() ? Story::DisturbedRemoval : Story::Disturbed; }
  [[nodiscard]] static std::vector<std::string> commandOf(Way way) {
    return way == Way::Removal ? PairMachine::removeCommand()
                               : PairMachine::installCommand(way == Way::First ? Version::First : Version::Second);
  }

  support::KilledOutcome killAt(unsigned long number, const std::vector<std::string>& command) {
    KillMoment moment;
    moment.calls = KilledRun::nameAndAttributeChanges();
    moment.number = number;
    moment.child = child_;
    return KilledRun::run(root(), command, moment);
  }
  /// How many changes a whole run makes.
  unsigned long changesOf(const std::vector<std::string>& command) {
    const auto whole = killAt(ULONG_MAX, command);
    EXPECT_EQ(whole.outcome.exitCode, 0) << errorsOf(whole.outcome);
    machine().waitUntilQuiet();
    return whole.callsSeen;
  }
  void expectNothingTorn() {
    machine().waitUntilQuiet();
    EXPECT_EQ(machine().whatIsTorn(GetParam().start, isRemoval()), "");
  }
  /// From here on nothing disturbs.
  void expectWholeAfter(Way way) { expectWholeAfter(way, story()); }
  void expectWholeAfter(Way way, Story story) {
    SCOPED_TRACE("then " + nameOf(way));
    const auto outcome = machine().go(way);
    EXPECT_EQ(outcome.exitCode, 0) << errorsOf(outcome);
    EXPECT_EQ(machine().whatIsWrong(GetParam().start, way, story), "");
  }
  /// Each of the three ways; on the way the user may edit what is his.
  void expectWholeAfterEachWay(unsigned long number) {
    machine().keep("left");
    for (const Way way : kWays) {
      machine().putBack("left");
      machine().forgetEdits();
      if (number % 2 == 0 && machine().settingsAreTheUsers()) {
        machine().editSettings("settings, edited after the kill");
      }
      expectWholeAfter(way);
    }
    machine().forgetEdits();
  }
  void prepareStart() {
    machine().begin(GetParam().start);
    machine().keep("start");
  }

  std::optional<std::string> child_;
};

class KilledReceiptOfPair : public KilledPair {};

TEST_P(KilledPair, EndsWholeAfterEachOfThreeWays) {
  prepareStart();
  const auto command = commandOf(GetParam().way);
  const unsigned long changes = changesOf(command);
  ASSERT_GT(changes, 10U);
  for (const unsigned long number : moments(changes, kSample)) {
    SCOPED_TRACE("killed at change " + std::to_string(number) + " of " + std::to_string(changes));
    machine().putBack("start");
    ASSERT_TRUE(killAt(number, command).reached);
    expectNothingTorn();
    expectWholeAfterEachWay(number);
  }
}

/// The run that puts right what an interrupted one left is interrupted, too.
TEST_P(KilledPair, EndsWholeWhenTheNextRunIsKilledToo) {
  prepareStart();
  const auto command = commandOf(GetParam().way);
  const unsigned long changes = changesOf(command);
  unsigned long turn = 0;
  for (const unsigned long number : moments(changes, kSampleOfRecoveries)) {
    SCOPED_TRACE("killed at change " + std::to_string(number) + " of " + std::to_string(changes));
    machine().putBack("start");
    ASSERT_TRUE(killAt(number, command).reached);
    machine().keep("interrupted");
    const Way next = isRemoval() && !machine().hasReceipt() ? Way::First : GetParam().way;
    const unsigned long more = changesOf(commandOf(next));
    for (const unsigned long second : moments(more, kSampleOfRecoveries)) {
      SCOPED_TRACE("and at change " + std::to_string(second) + " of " + std::to_string(more));
      machine().putBack("interrupted");
      static_cast<void>(killAt(second, commandOf(next)));
      expectNothingTorn();
      expectWholeAfter(kWays[turn++ % kWays.size()]);
    }
  }
}

/// A receipt process that dies takes a run's success with it, and nothing more.
TEST_P(KilledReceiptOfPair, EndsWholeAfterEachOfThreeWays) {
  prepareStart();
  const auto command = commandOf(GetParam().way);
  child_ = PairMachine::removeCommand().front();
  const unsigned long changes = changesOf(command);
  ASSERT_GT(changes, 10U);
  for (const unsigned long number : moments(changes, kSample)) {
    SCOPED_TRACE("its receipt was killed at change " + std::to_string(number) + " of " + std::to_string(changes));
    machine().putBack("start");
    const auto killed = killAt(number, command);
    ASSERT_TRUE(killed.reached);
    EXPECT_TRUE(killed.outcome.exitCode == 1 || !machine().hasJournal()) << killed.outcome.exitCode;
    child_.reset();
    expectNothingTorn();
    expectWholeAfterEachWay(number);
    child_ = PairMachine::removeCommand().front();
  }
}

/// One run after the other is killed, each on its way to another version or to a removal, as chance has it.
class KilledChain : public KilledPair {
 protected:
  static constexpr unsigned long kChains = 2;
  static constexpr unsigned long kManyChains = 100;
  static constexpr unsigned long kMostChanges = 400;

  static unsigned long chains() { return wantsAll() ? kManyChains : kChains; }
};

TEST_P(KilledChain, EndsWholeInTheEnd) {
  prepareStart();
  for (unsigned long seed = 1; seed <= chains(); ++seed) {
    std::mt19937_64 random(seed);
    machine().putBack("start");
    std::string told = "chain " + std::to_string(seed);
    bool removed = false;
    const unsigned long links = 2 + random() % 3;
    for (unsigned long link = 0; link < links; ++link) {
      Way way = kWays[random() % kWays.size()];
      const unsigned long number = 1 + random() % kMostChanges;
      way = way == Way::Removal && !machine().hasReceipt() ? Way::First : way;
      removed = removed || way == Way::Removal;
      const bool reached = killAt(number, commandOf(way)).reached;
      told += ", " + nameOf(way) + (reached ? " and killed at change " + std::to_string(number) : "");
      machine().waitUntilQuiet();
      ASSERT_EQ(machine().whatIsTorn(GetParam().start, removed), "") << told;
    }
    const Way way = kWays[random() % kWays.size()];
    SCOPED_TRACE(told);
    expectWholeAfter(way, removed ? Story::RemovedMeanwhile : Story::Disturbed);
  }
}

std::string nameOfFlow(const ::testing::TestParamInfo<Flow>& flow) { return flow.param.name; }

INSTANTIATE_TEST_SUITE_P(Flows, KilledChain, ::testing::Values(kFlows[0], kFlows[1], kFlows[2], kFlows[5]), nameOfFlow);
INSTANTIATE_TEST_SUITE_P(Flows, KilledReceiptOfPair, ::testing::Values(kFlows[1], kFlows[2], kFlows[3]), nameOfFlow);
INSTANTIATE_TEST_SUITE_P(Flows, KilledPair, ::testing::ValuesIn(kFlows), nameOfFlow);

}  // namespace
}  // namespace tests
