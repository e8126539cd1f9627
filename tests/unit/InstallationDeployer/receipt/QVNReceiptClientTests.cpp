#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "InstallationDeployer/protocols/QVNInstallationReceiptProtocol.h"
#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "InstallationDeployer/receipt/QVNReceiptClient.h"
#include "general/foundation/Thread.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/RemoteException.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeStepContext.h"
#include "tests/support/PrivateRunFolder.h"
#include "tests/support/VendedService.h"

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

TEST_F(ReceiptClient, LaunchesNothingWithoutAReceiptsPath) {
  run_.configuration().setProductName(std::nullopt);
  client_.setStrategy(&step_);
  const tests::CapturedLog log;
  EXPECT_FALSE(client_.launchReceiptExecutable());
  EXPECT_EQ(log.count("Error", "Receipt path is invalid"), 1U);
  EXPECT_EQ(client_.receiptProxy(), nullptr);
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

/// What the client makes of the services of a receipt process, without that process.
class ReceiptClientAndServices : public ReceiptClient {
 protected:
  void SetUp() override {
    if (const auto reason = tests::enterPrivateRunFolder()) {
      GTEST_SKIP() << *reason;
    }
    ReceiptClient::SetUp();
    client_.setStrategy(&step_);
    client_.handleReceiptStartNotification(started(kReceipt));
    client_.handleReceiptStatusStartNotification(started(kStatus));
  }
  static constexpr const char* kReceipt = "receipt.test";
  static constexpr const char* kStatus = "status.test";
};

TEST_F(ReceiptClientAndServices, AMessageThatRaisedIsLoggedAndItsProxyDropped) {
  const auto raises = [](std::string_view, std::span<const PropertyList>) -> PropertyList {
    throw ipc::RemoteException("OutOfLuck", "no luck today");
  };
  const tests::VendedService receipt(kReceipt, kQVNInstallationReceiptProtocol, raises);
  const tests::VendedService status(kStatus, kQVNInstallationStatusProtocol, raises);
  const tests::CapturedLog log;
  EXPECT_TRUE(client_.receiptProxy()->componentsAndVersions().isNil());
  EXPECT_FALSE(client_.lastReceiptProxyMessageSuccess());
  EXPECT_EQ(client_.receiptStatusProxy()->getCurrentState(), 0);
  EXPECT_FALSE(client_.lastReceiptStatusProxyMessageSuccess());
  EXPECT_EQ(log.texts("Error"),
            (std::vector<std::string>{"Receipt proxy sent exception. OutOfLuck: no luck today",
                                      "Receipt status proxy sent exception. OutOfLuck: no luck today"}));
}

TEST_F(ReceiptClientAndServices, WhatWasAnsweredStaysAnsweredWhenTheServiceIsGone) {
  const auto answers = [](std::string_view, std::span<const PropertyList>) { return PropertyList(true); };
  auto receipt = std::make_unique<tests::VendedService>(kReceipt, kQVNInstallationReceiptProtocol, answers);
  const tests::CapturedLog log;
  EXPECT_TRUE(client_.receiptProxy()->removeComponents({}));
  receipt.reset();
  EXPECT_TRUE(client_.lastReceiptProxyMessageSuccess());
  EXPECT_FALSE(client_.receiptProxy()->removeComponents({}));
  EXPECT_FALSE(client_.lastReceiptProxyMessageSuccess()) << "nobody has answered this one";
}

}  // namespace
}  // namespace deployer
