#include <gtest/gtest.h>

#include <memory>

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeStepContext.h"

namespace deployer {
namespace {

/// A step whose work is to fail, with a message and a state.
class FailingStep : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::plannedComponents;
  using QVNInstallStepStrategy::productName;
  using QVNInstallStepStrategy::QVNInstallStepStrategy;

  int worked = 0;
  QVNInstallerState state = QVNInstallerStateFailed;

 private:
  bool work() override {
    ++worked;
    return failWith(state, "Nothing can be done with %@", name());
  }
};

class InstallStep : public ::testing::Test {
 protected:
  tests::FakeStepContext run_{"/bundle"};
  FailingStep step_{{}, "step", nullptr, run_, nullptr};
};

TEST_F(InstallStep, HandedAFailureLogsThatItBeginsAndDoesNoWork) {
  const tests::CapturedLog log;
  EXPECT_FALSE(step_.execute(false));
  EXPECT_EQ(step_.worked, 0);
  EXPECT_EQ(step_.installerState(), QVNInstallerStateSuccess);
  EXPECT_TRUE(log.contains("Debug", ">>> executing step with plan: ()"));
}

TEST_F(InstallStep, ThatFailsLogsWhyAndKeepsTheState) {
  step_.state = QVNInstallerStateInsufficientDiskSpace;
  const tests::CapturedLog log;
  EXPECT_FALSE(step_.execute(true));
  EXPECT_EQ(step_.worked, 1);
  EXPECT_EQ(step_.installerState(), QVNInstallerStateInsufficientDiskSpace);
  EXPECT_TRUE(log.contains("Error", "Nothing can be done with step"));
  EXPECT_TRUE(run_.states.empty());
}

TEST_F(InstallStep, WithoutAPlanAndAProductHasNoComponentsAndAnEmptyName) {
  EXPECT_TRUE(step_.plannedComponents().empty());
  EXPECT_EQ(step_.productName(), "");
}

TEST_F(InstallStep, SeesThePlanAsItIsNow) {
  const auto plan = std::make_shared<Plan>();
  const FailingStep step({}, "step", nullptr, run_, plan);
  plan->emplace_back("A");
  EXPECT_EQ(step.plannedComponents(), Plan{"A"});
}

}  // namespace
}  // namespace deployer
