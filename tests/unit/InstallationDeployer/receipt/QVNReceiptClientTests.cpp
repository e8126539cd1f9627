#include <gtest/gtest.h>

#include <optional>

#include "InstallationDeployer/receipt/QVNReceiptClient.h"
#include "general/foundation/Thread.h"
#include "general/foundation/execution/RunLoop.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeStepContext.h"

namespace deployer {
namespace {

using foundation::PropertyList;

/// What the client does without a receipt process.
class ReceiptClient : public ::testing::Test {
 protected:
  void SetUp() override { run_.configuration().setProductName("P"); }
  static ipc::Notification started(const PropertyList& serviceName) {
    return {"started", "object", PropertyList::dictionary({{"serviceName", serviceName}})};
  }
  tests::FakeStepContext run_{"/Volumes/X/Installer.app"};
  QVNInstallStepStrategy step_{{}, "step", nullptr, run_, nullptr};
  QVNReceiptClient client_;
};

TEST_F(ReceiptClient, WithoutATaskShutdownSucceedsWithoutAnyMessage) {
  const tests::CapturedLog log;
  EXPECT_TRUE(client_.shutdownReceiptService());
  EXPECT_EQ(log.text(), "");
}

TEST_F(ReceiptClient, KeepsTheNameOfTheServiceThatAnnouncedItselfLast) {
  const tests::CapturedLog log;
  client_.handleReceiptStartNotification(started("com.corvane.installer.receipt.1"));
  EXPECT_EQ(client_.receiptServiceName(), "com.corvane.installer.receipt.1");
  client_.handleReceiptStatusStartNotification(started("com.corvane.installer.1"));
  EXPECT_EQ(client_.receiptServiceName(), "com.corvane.installer.1");
  EXPECT_NE(client_.receiptProxy(), nullptr);
  EXPECT_NE(client_.receiptStatusProxy(), nullptr);
}

TEST_F(ReceiptClient, TalksToTheReceiptWithRetriesAndToItsStatusServiceWithout) {
  const tests::CapturedLog log;
  client_.handleReceiptStartNotification(started("one"));
  client_.handleReceiptStatusStartNotification(started("two"));
  const auto& receipt = dynamic_cast<QVNInstallationReceiptProxy&>(*client_.receiptProxy()).remote();
  EXPECT_EQ(receipt.remoteServerName(), "one");
  EXPECT_EQ(receipt.protocolName(), "QVNInstallationReceiptProtocol");
  EXPECT_TRUE(receipt.retryAfterException());
  const auto& status = dynamic_cast<QVNInstallationStatusProxy&>(*client_.receiptStatusProxy()).remote();
  EXPECT_EQ(status.remoteServerName(), "two");
  EXPECT_EQ(status.protocolName(), "QVNInstallationStatusProtocol");
  EXPECT_FALSE(status.retryAfterException());
  EXPECT_FALSE(receipt.serverDidStartNotificationName() || status.serverDidStartNotificationName());
}

TEST_F(ReceiptClient, AnAnnouncementWithoutAServiceNameGivesAProxyThatReachesNobody) {
  const tests::CapturedLog log;
  client_.handleReceiptStartNotification(started(5));
  EXPECT_EQ(client_.receiptServiceName(), std::nullopt);
  EXPECT_FALSE(dynamic_cast<QVNInstallationReceiptProxy&>(*client_.receiptProxy())
                   .remote()
                   .respondsToSelector("shutdownService"));
}

TEST_F(ReceiptClient, MirrorsNothingWithoutAThreadThatServesWatchers) {
  client_.setStrategy(&step_);
  const tests::CapturedLog log;
  client_.startUpdatingCurrentStepStatusFromReceipt();
  client_.stopUpdatingCurrentStepStatusFromReceipt();
  EXPECT_EQ(log.text(), "");
}

TEST_F(ReceiptClient, MirrorsNothingOnAThreadThatHasEnded) {
  std::shared_ptr<foundation::RunLoop> loop;
  {
    const foundation::NamedThread thread("status server thread", [&loop] { loop = foundation::RunLoop::current(); });
  }
  QVNReceiptClient client(loop);
  client.setStrategy(&step_);
  const tests::CapturedLog log;
  client.startUpdatingCurrentStepStatusFromReceipt();
  client.stopUpdatingCurrentStepStatusFromReceipt();
  EXPECT_EQ(log.text(), "");
}

}  // namespace
}  // namespace deployer
