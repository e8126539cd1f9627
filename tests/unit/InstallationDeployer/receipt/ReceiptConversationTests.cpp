#include "InstallationDeployer/receipt/ReceiptConversation.h"
#include "tests/unit/InstallationDeployer/ReceiptAskingTest.h"

namespace deployer {
namespace {

class Conversation : public ReceiptAskingTest {
 protected:
  ReceiptConversation begin() { return ReceiptConversation::begin(step_, receipts_).value(); }
  /// Of the last request.
  void expectNoAnswer(bool isAnswered) {
    EXPECT_FALSE(isAnswered);
    EXPECT_EQ(step_.installerState(), QVNInstallerStateFailed);
  }

  QVNInstallStepStrategy step_{{}, "step", nullptr, run_, nullptr};
};

TEST_F(Conversation, WithoutAClientOrOneOfTheServicesTheStepHasFailed) {
  const tests::CapturedLog log;
  receipts_.receiptClient = nullptr;
  EXPECT_FALSE(ReceiptConversation::begin(step_, receipts_));
  receipts_.receiptClient = &client_;
  client_.hasReceiptProxy = false;
  EXPECT_FALSE(ReceiptConversation::begin(step_, receipts_));
  client_.hasReceiptProxy = true;
  client_.hasStatusProxy = false;
  EXPECT_FALSE(ReceiptConversation::begin(step_, receipts_));
  EXPECT_EQ(step_.installerState(), QVNInstallerStateFailed);
  EXPECT_EQ(log.count("Error", "Failed to connect with receipt"), 3U);
}

TEST_F(Conversation, HandsOverAnswersThatTellNothingAsAnswers) {
  client_.records = {};
  client_.fixPlan.reset();
  client_.removes = false;
  auto receipt = begin();
  const auto records = receipt.componentsAndVersions();
  ASSERT_TRUE(records);
  EXPECT_TRUE(records->isNil());
  const auto fixPlan = receipt.fixPlanForValidation();
  ASSERT_TRUE(fixPlan);
  EXPECT_FALSE(fixPlan->has_value());
  EXPECT_EQ(receipt.removeComponents({"A"}), false);
  EXPECT_EQ(step_.installerState(), QVNInstallerStateSuccess);
}

TEST_F(Conversation, AnAnswerThatNobodyVouchesForIsNoneAndTheStepHasFailed) {
  const tests::CapturedLog log;
  client_.failingMessage = "componentsAndVersions";
  expectNoAnswer(begin().componentsAndVersions().has_value());
  step_.setInstallerState(QVNInstallerStateSuccess);
  client_.failingMessage = "fixPlanForValidation";
  expectNoAnswer(begin().fixPlanForValidation().has_value());
  step_.setInstallerState(QVNInstallerStateSuccess);
  client_.failingMessage = "removeComponents:";
  expectNoAnswer(begin().removeComponents({"A"}).has_value());
}

TEST_F(Conversation, MirrorsStatesOnlyDuringRequestsThatTakeLong) {
  auto receipt = begin();
  EXPECT_TRUE(receipt.componentsAndVersions() && receipt.fixPlanForValidation() && receipt.removeComponents({"A"}));
  EXPECT_EQ(client_.calls, (Texts{"componentsAndVersions", "start updating", "fixPlanForValidation", "stop updating",
                                  "start updating", "removeComponents:", "stop updating"}));
}

TEST_F(Conversation, TheReceiptsFailureBecomesTheStepsOwnWithTheMessageInTheLog) {
  client_.state = QVNInstallerStateInsufficientDiskSpace;
  const tests::CapturedLog log;
  EXPECT_FALSE(begin().takeOverState("what went wrong"));
  EXPECT_EQ(step_.installerState(), QVNInstallerStateInsufficientDiskSpace);
  EXPECT_EQ(log.texts("Error"), Texts{"what went wrong"});
  EXPECT_TRUE(log.contains("Debug", statusLine()));
}

TEST_F(Conversation, AReceiptInSuccessHasNothingToComplainOf) {
  step_.setInstallerState(QVNInstallerStateFailed);
  const tests::CapturedLog log;
  EXPECT_TRUE(begin().takeOverState("what went wrong"));
  EXPECT_EQ(step_.installerState(), QVNInstallerStateSuccess);
  EXPECT_EQ(log.texts("Error"), Texts{});
}

TEST_F(Conversation, AStateThatDidNotComeIsAFailureAndAtNoTimeSuccess) {
  client_.failingMessage = "getCurrentState";
  const tests::CapturedLog log;
  EXPECT_FALSE(begin().takeOverState("what went wrong"));
  EXPECT_EQ(step_.installerState(), QVNInstallerStateFailed);
  EXPECT_EQ(log.texts("Error"), Texts{"what went wrong"});
  EXPECT_EQ(log.text().find("setInstallerState:0"), std::string::npos);
}

}  // namespace
}  // namespace deployer
