#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "InstallationDeployer/steps/QVNAggregateInstallStrategy.h"
#include "general/foundation/Thread.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeStepContext.h"

namespace deployer {
namespace {

using foundation::PropertyList;

/// A step that does what the test says and remembers what it was handed.
class ScriptedStep : public QVNInstallStepStrategy {
 public:
  using Script = std::function<bool(ScriptedStep&, bool)>;
  ScriptedStep(StepContext& run, std::string name, Script script)
      : QVNInstallStepStrategy({}, std::move(name), nullptr, run, nullptr), script_(std::move(script)) {}

  bool execute(bool previousSuccess) override {
    QVNInstallStepStrategy::execute(previousSuccess);
    handed.push_back(previousSuccess);
    return script_(*this, previousSuccess);
  }
  std::vector<bool> handed;

 private:
  Script script_;
};

bool succeed(ScriptedStep& /*step*/, bool previous) { return previous; }

ScriptedStep::Script failWithState(std::uint32_t state) {
  return [state](ScriptedStep& step, bool previous) {
    if (previous && state != 0) {
      step.setInstallerState(static_cast<QVNInstallerState>(state));
    }
    return false;
  };
}

class StepFramework : public ::testing::Test {
 protected:
  ScriptedStep* add(const std::string& name, ScriptedStep::Script script) {
    auto step = std::make_unique<ScriptedStep>(run_, name, std::move(script));
    ScriptedStep* added = step.get();
    steps_.push_back(std::move(step));
    return added;
  }
  std::unique_ptr<QVNAggregateInstallStrategy> composite(const std::string& name = "Root") {
    return std::make_unique<QVNAggregateInstallStrategy>(PropertyList(), name, std::move(steps_), nullptr, run_);
  }

  tests::FakeStepContext run_{"/bundle"};
  StepList steps_;
};

TEST_F(StepFramework, CompositeWithoutChildrenSucceedsOrReturnsItsArgument) {
  auto root = composite();
  EXPECT_EQ(root->getProgress(), 0U);
  EXPECT_TRUE(root->execute(true));
  EXPECT_EQ(root->installerState(), QVNInstallerStateSuccess);
  EXPECT_EQ(root->getProgress(), 100U);
  EXPECT_FALSE(composite()->execute(false));
}

TEST_F(StepFramework, SuccessIsHandedFromChildToChild) {
  ScriptedStep* first = add("A", succeed);
  ScriptedStep* second = add("B", succeed);
  auto root = composite();
  const tests::CapturedLog log;
  EXPECT_TRUE(root->execute(true));
  EXPECT_EQ(first->handed, std::vector<bool>{true});
  EXPECT_EQ(second->handed, std::vector<bool>{true});
  EXPECT_TRUE(log.contains("Notice", "\"Root.A\" success: YES"));
  EXPECT_TRUE(log.contains("Notice", "\"Root.B\" success: YES"));
  EXPECT_TRUE(log.contains("Debug", ">>> executing Root with plan: ()"));
}

TEST_F(StepFramework, FailureIsKeptWhileTheRestIsCalledWithFalse) {
  add("A", failWithState(4));
  ScriptedStep* skipped = add("B", succeed);
  auto root = composite();
  const tests::CapturedLog log;
  EXPECT_FALSE(root->execute(true));
  EXPECT_EQ(skipped->handed, std::vector<bool>{false});
  EXPECT_EQ(root->installerState(), QVNInstallerStateInsufficientDiskSpace);
  EXPECT_TRUE(log.contains("Debug", "Root.A failed. Installer state 4"));
  EXPECT_TRUE(log.contains("Notice", "\"Root.B\" success: NO"));
}

TEST_F(StepFramework, CleanUpChildThatSucceedsAfterAFailureMakesTheCompositeSucceed) {
  add("A", failWithState(4));
  add("B", succeed);
  add("C", [](ScriptedStep&, bool) { return true; });
  auto root = composite();
  EXPECT_TRUE(root->execute(true));
  EXPECT_EQ(root->installerState(), QVNInstallerStateSuccess);
}

TEST_F(StepFramework, FirstFailureWithAStateCounts) {
  add("A", failWithState(0));
  add("B", [](ScriptedStep& step, bool) {
    step.setInstallerState(QVNInstallerStateFailed);
    return false;
  });
  auto root = composite();
  const tests::CapturedLog log;
  EXPECT_FALSE(root->execute(true));
  EXPECT_EQ(root->installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains("Debug", "Root.B failed. Installer state 1"));
  const auto texts = log.texts("Debug");
  EXPECT_EQ(std::ranges::count_if(texts, [](const std::string& text) { return text.find(" failed. ") != text.npos; }),
            1);
}

TEST_F(StepFramework, FailuresWithoutAnyStateEndInStateZeroWithFalse) {
  add("A", failWithState(0));
  auto root = composite();
  EXPECT_FALSE(root->execute(true));
  EXPECT_EQ(root->installerState(), QVNInstallerStateSuccess);
}

TEST_F(StepFramework, CancellationWhileTheLastChildSucceedsEndsCancelled) {
  add("A", [this](ScriptedStep&, bool) {
    run_.cancelled = true;
    return true;
  });
  auto root = composite();
  const tests::CapturedLog log;
  EXPECT_FALSE(root->execute(true));
  EXPECT_EQ(root->installerState(), QVNInstallerStateCancelled);
  EXPECT_TRUE(log.contains("Notice", "\"Root.A\" success: NO"));
}

TEST_F(StepFramework, CancellationIsNotSeenAfterAFailure) {
  add("A", [this](ScriptedStep& step, bool) {
    run_.cancelled = true;
    step.setInstallerState(QVNInstallerStateInsufficientDiskSpace);
    return false;
  });
  auto root = composite();
  EXPECT_FALSE(root->execute(true));
  EXPECT_EQ(root->installerState(), QVNInstallerStateInsufficientDiskSpace);
}

TEST_F(StepFramework, CancellationReplacesAnEarlierFailureWhenALaterChildSucceeds) {
  add("A", failWithState(4));
  add("B", [this](ScriptedStep&, bool) {
    run_.cancelled = true;
    return true;
  });
  auto root = composite();
  EXPECT_FALSE(root->execute(true));
  EXPECT_EQ(root->installerState(), QVNInstallerStateCancelled);
}

TEST_F(StepFramework, ActiveStatesClimbToTheRunAndFinalOnesStay) {
  foundation::setCurrentThreadName("test thread");
  add("Copy", [](ScriptedStep& step, bool) {
    step.setInstallerState(QVNInstallerStateInstalling);
    step.setInstallerState(QVNInstallerStateFailed);
    return false;
  });
  StepList outer;
  outer.push_back(composite("Install"));
  auto* inner = outer.front().get();
  QVNAggregateInstallStrategy root({}, "Root", std::move(outer), nullptr, run_);
  const tests::CapturedLog log;
  EXPECT_FALSE(root.execute(true));
  EXPECT_EQ(run_.states, std::vector<QVNInstallerState>{QVNInstallerStateInstalling});
  EXPECT_EQ(inner->installerState(), QVNInstallerStateFailed);
  EXPECT_EQ(root.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains("Debug", "----- <test thread>[Root.Install.Copy setInstallerState:15]"));
  EXPECT_TRUE(log.contains("Debug", "----- <test thread>[Root.Install setInstallerState:15]"));
  EXPECT_TRUE(log.contains("Debug", "----- <test thread>[Root setInstallerState:15]"));
  EXPECT_TRUE(log.contains("Debug", "----- <test thread>[Root.Install.Copy setInstallerState:1]"));
}

TEST_F(StepFramework, QualifiedNameJoinsTheNamesFromTheRoot) {
  ScriptedStep* copy = add("Copy", succeed);
  StepList outer;
  outer.push_back(composite("Install"));
  const QVNAggregateInstallStrategy root({}, "Root", std::move(outer), nullptr, run_);
  EXPECT_EQ(copy->qualifiedName(), "Root.Install.Copy");
  EXPECT_EQ(copy->description(), "<QVNInstallStepStrategy: > Root.Install.Copy");
  EXPECT_EQ(root.description(), "<QVNAggregateInstallStrategy: > Root");
}

TEST_F(StepFramework, PlanDescriptionJoinsTheNamesInBrackets) {
  EXPECT_EQ(QVNInstallStepStrategy::planDescription(Plan{"a", "b"}), "(a, b)");
  EXPECT_EQ(QVNInstallStepStrategy::planDescription(Plan{}), "()");
  EXPECT_EQ(QVNInstallStepStrategy::planDescription(SharedPlan()), "()");
  EXPECT_EQ(QVNInstallStepStrategy::planDescription(Plan{"", "b"}), "(, b)");
}

TEST_F(StepFramework, LeafReportsTenMoreWithEveryPollUpToAHundred) {
  ScriptedStep leaf(run_, "leaf", succeed);
  for (std::uint64_t poll = 1; poll <= 12; ++poll) {
    EXPECT_EQ(leaf.getProgress(), poll < 10 ? poll * 10 : 100);
  }
  leaf.setProgressValue(95);
  EXPECT_EQ(leaf.getProgress(), 95U);
}

TEST_F(StepFramework, CompositeProgressCountsEveryChildEqually) {
  std::vector<std::uint64_t> seen;
  QVNAggregateInstallStrategy* watched = nullptr;
  for (const char* name : {"A", "B", "C", "D"}) {
    add(name, [&](ScriptedStep& step, bool) {
      step.setProgressValue(45);
      seen.push_back(watched->getProgress());
      return true;
    });
  }
  auto root = composite();
  watched = root.get();
  EXPECT_EQ(root->getProgress(), 0U);
  EXPECT_EQ(root->currentStepIndex(), -1);
  EXPECT_TRUE(root->execute(true));
  // Each poll makes the running child 55: 55 of a quarter is 13.75, cut.
  EXPECT_EQ(seen, (std::vector<std::uint64_t>{13, 38, 63, 88}));
  EXPECT_EQ(root->currentStepIndex(), 4);
  EXPECT_EQ(root->getProgress(), 100U);
}

TEST_F(StepFramework, ThirdOfFourChildrenAtFiftyIsSixtyTwo) {
  std::uint64_t seen = 0;
  QVNAggregateInstallStrategy* watched = nullptr;
  add("A", succeed);
  add("B", succeed);
  add("C", [&](ScriptedStep& step, bool) {
    step.setProgressValue(40);
    seen = watched->getProgress();
    return true;
  });
  add("D", succeed);
  auto root = composite();
  watched = root.get();
  EXPECT_TRUE(root->execute(true));
  EXPECT_EQ(seen, 62U);
}

TEST_F(StepFramework, ExecutingIsLoggedWithThePlan) {
  const auto plan = std::make_shared<Plan>(Plan{"Core", "Agent"});
  QVNInstallStepStrategy step({}, "step", nullptr, run_, plan);
  const tests::CapturedLog log;
  EXPECT_TRUE(step.execute(true));
  EXPECT_FALSE(step.execute(false));
  EXPECT_EQ(log.count("Debug", ">>> executing step with plan: (Core, Agent)"), 2U);
}

}  // namespace
}  // namespace deployer
