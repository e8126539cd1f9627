#include <gtest/gtest.h>

#include <algorithm>

#include "InstallationDeployer/plans/QVNBuildInstallPlanStrategy.h"
#include "InstallationDeployer/receipt/QVNReceiptRemoveStrategy.h"
#include "general/foundation/Thread.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeReceiptClient.h"
#include "tests/support/FakeReceiptContext.h"
#include "tests/support/FakeStepContext.h"
#include "tests/unit/InstallationDeployer/BundleFixture.h"

namespace deployer {
namespace {

using Texts = std::vector<std::string>;

/// The steps of an installer that talk to the installed product's receipt.
class ReceiptSteps : public ::testing::Test, protected tests::BundleFixture {
 protected:
  void SetUp() override {
    run_.configuration().setProductName("P");
    run_.configuration().setHasInstallerReceipt(true);
    receipts_.receiptClient = &client_;
    writeProduct({"A", "B", "C"});
    writeVersion("A", "1.0");
    writeVersion("B", "1.1");
    writeVersion("C", "1.0");
    client_.records = records({{"A", "1.0"}, {"B", "1.0"}});
  }

  void writeProduct(const Texts& components) const {
    writeIndex(dictionary({{"Products", dictionary({{"P", product({localPayload(components)})}})}}));
  }
  void writeVersion(const std::string& component, const std::string& version) const {
    writeManifest(component, dictionary({{"ComponentVersion", version}}));
  }
  [[nodiscard]] static PropertyList records(const std::vector<std::pair<std::string, std::string>>& installed) {
    PropertyList::Array list;
    for (const auto& [name, version] : installed) {
      list.push_back(dictionary({{"ComponentName", name}, {"ComponentVersion", version}}));
    }
    return array(std::move(list));
  }
  static std::string statusLine() {
    return "----- <" + foundation::currentThreadName() +
           ">execute:\n\tstatusProxy = the status proxy\n\t[statusProxy getCurrentState]";
  }
  template <class Step>
  void expectFailure(Step& step, QVNInstallerState state, const Texts& errors) {
    const tests::CapturedLog log;
    EXPECT_FALSE(step.execute(true));
    EXPECT_EQ(step.installerState(), state);
    EXPECT_EQ(log.texts("Error"), errors);
  }

  tests::FakeReceiptClient client_;
  tests::FakeStepContext run_{path()};
  tests::FakeReceiptContext receipts_{path()};
  SharedPlan plan_ = std::make_shared<Plan>();
};

class PlanUpgrade : public ReceiptSteps {
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

class RemoteRemove : public ReceiptSteps {
 protected:
  void SetUp() override {
    ReceiptSteps::SetUp();
    *plan_ = {"A", "B"};
  }
  QVNReceiptRemoveStrategy step_{{}, "localPayload.remoteRemove", nullptr, run_, plan_, receipts_};
};

TEST_F(RemoteRemove, HasTheReceiptRemoveThePlanWithStatesMirroredMeanwhile) {
  EXPECT_TRUE(step_.execute(true));
  EXPECT_EQ(client_.componentsToRemove, (Texts{"A", "B"}));
  EXPECT_EQ(client_.calls, (Texts{"start updating", "removeComponents:", "stop updating"}));
}

TEST_F(RemoteRemove, AnInstallWithoutAReceiptSucceedsAndAsksForNoClient) {
  run_.configuration().setHasInstallerReceipt(false);
  EXPECT_TRUE(step_.execute(true));
  EXPECT_TRUE(receipts_.askedForReceiptClient.empty());
}

TEST_F(RemoteRemove, ARemovalWithoutAReceiptFails) {
  run_.configuration().setHasInstallerReceipt(false);
  run_.configuration().setInstall(false);
  run_.configuration().setRemove(true);
  expectFailure(step_, QVNInstallerStateFailed, {"Failed to find receipt"});
  EXPECT_TRUE(receipts_.askedForReceiptClient.empty());
}

TEST_F(RemoteRemove, AfterAnEarlierFailureItAsksNothing) {
  EXPECT_FALSE(step_.execute(false));
  EXPECT_TRUE(receipts_.askedForReceiptClient.empty());
  EXPECT_EQ(step_.installerState(), QVNInstallerStateSuccess);
}

TEST_F(RemoteRemove, FailsWithoutAProxyAndAsksNothing) {
  client_.hasStatusProxy = false;
  expectFailure(step_, QVNInstallerStateFailed, {"Failed to connect with receipt"});
  client_.hasStatusProxy = true;
  client_.hasReceiptProxy = false;
  expectFailure(step_, QVNInstallerStateFailed, {"Failed to connect with receipt"});
  EXPECT_EQ(client_.calls, Texts{});
  receipts_.receiptClient = nullptr;
  expectFailure(step_, QVNInstallerStateFailed, {"Failed to connect with receipt"});
}

TEST_F(RemoteRemove, FailsSilentlyWhenTheMessageFailedEvenIfItsResultIsYes) {
  client_.failingMessage = "removeComponents:";
  expectFailure(step_, QVNInstallerStateFailed, {});
  EXPECT_EQ(client_.calls.back(), "stop updating");
}

TEST_F(RemoteRemove, ARemovalThatWentWrongGivesItsStateToTheStep) {
  client_.removes = false;
  client_.state = QVNInstallerStateCancelled;
  const tests::CapturedLog log;
  EXPECT_FALSE(step_.execute(true));
  EXPECT_EQ(step_.installerState(), QVNInstallerStateCancelled);
  EXPECT_EQ(log.texts("Error"), Texts{"Unable to remove components"});
  EXPECT_TRUE(log.contains("Debug", statusLine()));
}

TEST_F(RemoteRemove, ANoFromAReceiptInSuccessIsReturnedQuietly) {
  client_.removes = false;
  expectFailure(step_, QVNInstallerStateSuccess, {});
}

TEST_F(RemoteRemove, ANoWhoseStateCannotBeHadIsAFailureAndNeverSuccess) {
  client_.removes = false;
  client_.failingMessage = "getCurrentState";
  expectFailure(step_, QVNInstallerStateFailed, {"Unable to remove components"});
}

}  // namespace
}  // namespace deployer
