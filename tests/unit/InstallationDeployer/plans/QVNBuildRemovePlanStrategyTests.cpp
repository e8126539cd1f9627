#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "InstallationDeployer/plans/QVNBuildRemovePlanStrategy.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeStepContext.h"
#include "tests/unit/InstallationDeployer/BundleFixture.h"

namespace deployer {
namespace {

class BuildRemovePlan : public ::testing::Test, protected tests::BundleFixture {
 protected:
  void SetUp() override { run_.configuration().setProductName("P"); }
  void writeProduct(const Plan& components) const {
    writeIndex(indexOfComponents("P", components));
    for (const std::string& component : components) {
      writeManifest(component, dictionary({{"ComponentVersion", "1.0"}}));
    }
  }

  tests::FakeStepContext run_{path()};
  SharedPlan plan_ = std::make_shared<Plan>();
  QVNBuildRemovePlanStrategy step_{{}, "buildRemovePlan", nullptr, run_, plan_};
};

TEST_F(BuildRemovePlan, StepHandedAFailureDoesNothing) {
  run_.configuration().setBundlePathIsReceipt(true);
  writeProduct({"A"});
  *plan_ = {"stale"};
  EXPECT_FALSE(step_.execute(false));
  EXPECT_EQ(*plan_, Plan{"stale"});
  EXPECT_EQ(step_.installerState(), QVNInstallerStateSuccess);
}

TEST_F(BuildRemovePlan, OutsideTheReceiptLocationFails) {
  const tests::CapturedLog log;
  EXPECT_FALSE(step_.execute(true));
  EXPECT_EQ(step_.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains(
      "Error", "QVNBuildRemovePlanStrategy must run from the receipt location.\n\tCurrently running from: " + path()));
}

TEST_F(BuildRemovePlan, PlansEveryComponentInIndexOrder) {
  run_.configuration().setBundlePathIsReceipt(true);
  writeProduct({"B", "A"});
  *plan_ = {"stale"};
  EXPECT_TRUE(step_.execute(true));
  EXPECT_EQ(*plan_, (Plan{"B", "A"}));
}

TEST_F(BuildRemovePlan, WithoutRecordsPlansNothingAndSucceeds) {
  run_.configuration().setBundlePathIsReceipt(true);
  *plan_ = {"stale"};
  EXPECT_TRUE(step_.execute(true));
  EXPECT_TRUE(plan_->empty());
  EXPECT_EQ(run_.manifest().installerState(), 1);
}

}  // namespace
}  // namespace deployer
