#include <gtest/gtest.h>

#include "InstallationDeployer/receipt/QVNReceiptRemoveStrategy.h"
#include "tests/unit/InstallationDeployer/ReceiptAskingTest.h"

namespace deployer {
namespace {

class RemoteRemove : public ReceiptAskingTest {
 protected:
  void SetUp() override {
    ReceiptAskingTest::SetUp();
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

TEST_F(RemoteRemove, HasNothingToDoOnAFreshMachine) {
  run_.configuration().setHasInstallerReceipt(false);
  EXPECT_TRUE(step_.execute(true));
  EXPECT_FALSE(step_.execute(false));
  run_.configuration().setInstall(false);
  const tests::CapturedLog log;
  EXPECT_FALSE(step_.execute(true));
  EXPECT_TRUE(log.contains("Error", "Failed to find receipt"));
  EXPECT_EQ(step_.installerState(), QVNInstallerStateFailed);
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
