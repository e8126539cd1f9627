#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "InstallationDeployer/plans/QVNBuildInstallPlanStrategy.h"
#include "tests/support/Unprivileged.h"
#include "tests/unit/InstallationDeployer/ReceiptAskingTest.h"

namespace deployer {
namespace {

class PlanUpgrade : public ReceiptAskingTest {
 protected:
  QVNBuildInstallPlanStrategy step_{{}, "localPayload.buildPlan", nullptr, run_, plan_, receipts_};
};

TEST_F(PlanUpgrade, HoldsWhatIsUpgradedFollowedByWhatIsOnlyRepaired) {
  client_.fixPlan = Texts{"B", "D", "D", "A"};
  *plan_ = {"left from before"};
  EXPECT_TRUE(step_.execute(true));
  ASSERT_EQ(plan_->size(), 4U);
  std::sort(plan_->begin(), plan_->begin() + 2);
  EXPECT_EQ(*plan_, (Plan{"B", "C", "D", "A"}));
  EXPECT_EQ(step_.installerState(), QVNInstallerStateSuccess);
}

TEST_F(PlanUpgrade, AsksForVersionsAndThenForTheFixPlanWithStatesMirroredMeanwhile) {
  EXPECT_TRUE(step_.execute(true));
  EXPECT_EQ(client_.calls, (Texts{"componentsAndVersions", "start updating", "fixPlanForValidation", "stop updating"}));
  EXPECT_EQ(receipts_.askedForReceiptClient, (std::vector<QVNInstallStepStrategy*>{&step_}));
}

TEST_F(PlanUpgrade, OverAnEqualReceiptPlansOnlyTheRepair) {
  client_.records = records({{"A", "1.0"}, {"B", "1.1"}, {"C", "1.0"}});
  client_.fixPlan = Texts{"C"};
  const tests::CapturedLog log;
  EXPECT_TRUE(step_.execute(true));
  EXPECT_EQ(*plan_, Plan{"C"});
  EXPECT_TRUE(log.contains("Notice", "Upgrade plan is empty. Nothing to upgrade"));
}

TEST_F(PlanUpgrade, CarriesADroppedComponentIntoThePlan) {
  client_.records = records({{"A", "1.0"}, {"B", "1.1"}, {"C", "1.0"}, {"Dropped", "1.0"}});
  EXPECT_TRUE(step_.execute(true));
  EXPECT_EQ(*plan_, Plan{"Dropped"});
}

TEST_F(PlanUpgrade, AManifestThatCannotBeReadFailsTheStepInsteadOfLeavingNothingToDo) {
  client_.records = records({{"A", "1.0"}, {"B", "1.1"}, {"C", "1.0"}});
  std::filesystem::remove(run_.manifest().getPathForComponent("B"));
  std::filesystem::create_directory(run_.manifest().getPathForComponent("B"));
  const tests::CapturedLog log;
  EXPECT_FALSE(step_.execute(true));
  EXPECT_EQ(step_.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(plan_->empty());
}

TEST_F(PlanUpgrade, AnExternalFileThatCannotBeLookedAtFailsTheStepInsteadOfLeavingNothingToDo) {
  client_.records = records({{"A", "1.0"}, {"B", "1.1"}, {"C", "1.0"}});
  const std::string hidden = directory().write("closed/file", "x");
  for (const std::string& open : {directory().path(), path()}) {
    ASSERT_EQ(chmod(open.c_str(), 0755), 0);
  }
  ASSERT_EQ(chmod(directory().path("closed").c_str(), 0700), 0);
  writeManifest(
      "C",
      dictionary({{"ComponentVersion", "1.0"},
                  {"ListOfFiles", array({external("/installed", hidden, {{"CheckForExternalFileChanges", true}})})}}));
  const tests::CapturedLog log;
  {
    const tests::Unprivileged nobody;
    ASSERT_TRUE(nobody.changed());
    EXPECT_FALSE(step_.execute(true));
  }
  EXPECT_EQ(step_.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.text().find("<Error>: Unable to read attributes. Error Domain=") != std::string::npos) << log.text();
}

TEST_F(PlanUpgrade, FailsWithoutAReceiptProxyOrAStatusProxyAndAsksNothing) {
  client_.hasReceiptProxy = false;
  expectFailure(step_, QVNInstallerStateFailed, {"Failed to connect with receipt"});
  client_.hasReceiptProxy = true;
  client_.hasStatusProxy = false;
  expectFailure(step_, QVNInstallerStateFailed, {"Failed to connect with receipt"});
  EXPECT_EQ(client_.calls, Texts{});
  EXPECT_TRUE(plan_->empty());
}

TEST_F(PlanUpgrade, FailsSilentlyWhenTheVersionsCannotBeAskedFor) {
  client_.failingMessage = "componentsAndVersions";
  expectFailure(step_, QVNInstallerStateFailed, {});
  EXPECT_TRUE(plan_->empty());
}

TEST_F(PlanUpgrade, FailsSilentlyWhenTheFixPlanCannotBeAskedForAndStopsMirroringAllTheSame) {
  client_.failingMessage = "fixPlanForValidation";
  expectFailure(step_, QVNInstallerStateFailed, {});
  EXPECT_EQ(client_.calls.back(), "stop updating");
  EXPECT_TRUE(plan_->empty());
}

TEST_F(PlanUpgrade, WithoutVersionsFromAReceiptInSuccessEverythingIsNew) {
  client_.records = {};
  const tests::CapturedLog log;
  EXPECT_TRUE(step_.execute(true));
  std::sort(plan_->begin(), plan_->end());
  EXPECT_EQ(*plan_, (Plan{"A", "B", "C"}));
  EXPECT_TRUE(log.contains("Debug", statusLine()));
  EXPECT_EQ(log.texts("Error"), Texts{});
}

TEST_F(PlanUpgrade, WithoutVersionsTheStateOfTheReceiptIsTakenOver) {
  client_.records = {};
  client_.state = QVNInstallerStateInsufficientDiskSpace;
  expectFailure(step_, QVNInstallerStateInsufficientDiskSpace, {"Unable to acquire upgrade plan"});
}

TEST_F(PlanUpgrade, WithoutVersionsAndWithoutAStateItIsAFailureAndNeverSuccess) {
  client_.records = {};
  client_.failingMessage = "getCurrentState";
  expectFailure(step_, QVNInstallerStateFailed, {"Unable to acquire upgrade plan"});
}

TEST_F(PlanUpgrade, WithoutAFixPlanFromAReceiptInSuccessOnlyTheUpgradeIsPlanned) {
  client_.fixPlan.reset();
  const tests::CapturedLog log;
  EXPECT_TRUE(step_.execute(true));
  std::sort(plan_->begin(), plan_->end());
  EXPECT_EQ(*plan_, (Plan{"B", "C"}));
  EXPECT_TRUE(log.contains("Debug", statusLine()));
}

TEST_F(PlanUpgrade, WithoutAFixPlanTheStateOfTheReceiptIsTakenOver) {
  client_.fixPlan.reset();
  client_.state = QVNInstallerStateValidating;
  expectFailure(step_, QVNInstallerStateValidating, {"Unable to acquire fix plan, or fix plan is invalid"});
  EXPECT_TRUE(plan_->empty());
}

TEST_F(PlanUpgrade, WithoutAFixPlanAndWithoutAStateItIsAFailureAndNeverSuccess) {
  client_.fixPlan.reset();
  client_.failingMessage = "getCurrentState";
  expectFailure(step_, QVNInstallerStateFailed, {"Unable to acquire fix plan, or fix plan is invalid"});
}

TEST_F(PlanUpgrade, AnUpgradeThatCannotBeWorkedOutLeavesTheFixPlanAndItsOwnState) {
  const std::string missing = path("missing");
  writeManifest("A", dictionary({{"ComponentVersion", "1.0"},
                                 {"ListOfFiles", array({dictionary({{"Path", missing},
                                                                    {"ExternalSourcePath", missing},
                                                                    {"CheckForExternalFileChanges", true}})})}}));
  client_.fixPlan = Texts{"C"};
  const tests::CapturedLog log;
  EXPECT_TRUE(step_.execute(true));
  EXPECT_EQ(*plan_, Plan{"C"});
  EXPECT_EQ(step_.installerState(), QVNInstallerStateFailed);
}

TEST_F(PlanUpgrade, OddRecordsOfAnotherVersionsReceiptAreNotTakenForComponents) {
  client_.records = array({dictionary({{"ComponentVersion", "1.0"}}), PropertyList("text"), PropertyList(),
                           dictionary({{"ComponentName", 5}})});
  EXPECT_TRUE(step_.execute(true));
  std::sort(plan_->begin(), plan_->end());
  EXPECT_EQ(*plan_, (Plan{"A", "B", "C"}));
  client_.records = dictionary({{"A", "1.0"}});
  EXPECT_TRUE(step_.execute(true));
  EXPECT_EQ(plan_->size(), 3U);
}

}  // namespace
}  // namespace deployer
