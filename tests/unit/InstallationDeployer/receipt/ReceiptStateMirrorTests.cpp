#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "InstallationDeployer/protocols/ServiceAnnouncement.h"
#include "InstallationDeployer/receipt/QVNReceiptClient.h"
#include "general/foundation/Thread.h"
#include "general/ipc/DistributedNotifications.h"
#include "general/ipc/RemoteException.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeStepContext.h"
#include "tests/support/LoopThread.h"
#include "tests/support/PrivateRunFolder.h"
#include "tests/support/VendedService.h"

namespace deployer {
namespace {

using foundation::PropertyList;

constexpr const char* kStatusService = "com.corvane.installer.77";

/// Lets a test wait for the first state that it is told.
class ToldRun : public tests::FakeStepContext {
 public:
  using FakeStepContext::FakeStepContext;
  void setInstallerState(QVNInstallerState state) override {
    FakeStepContext::setInstallerState(state);
    if (states.size() == 1) {
      told.set_value(foundation::currentThreadName());
    }
  }
  std::promise<std::string> told;
};

/// The client between a receipt's status service and the thread that serves the run's watchers.
class ReceiptMirroring : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const auto reason = tests::enterPrivateRunFolder()) {
      GTEST_SKIP() << *reason;
    }
    run_.configuration().setProductName("P");
    watchers_ = std::make_unique<tests::LoopThread>("status server thread");
    client_ = std::make_unique<QVNReceiptClient>(watchers_->loop);
    client_->setStrategy(&step_);
  }
  /// Vends a status service that always answers with this, and announces it to the client.
  void vendStatus(ipc::Target target) {
    service_.emplace(kStatusService, kQVNInstallationStatusProtocol, std::move(target));
    const tests::CapturedLog log;
    client_->handleReceiptStatusStartNotification(serviceAnnouncement("started", "object", kStatusService));
  }
  void vendStatus(QVNInstallerState state) {
    vendStatus([state](std::string_view, auto) { return PropertyList(static_cast<std::int64_t>(state)); });
  }
  void postUpdate(const std::string& object) {
    ipc::postDistributedNotification({std::string(kQVNInstallationStatusUpdatedNotification), object, {}});
  }
  [[nodiscard]] std::string sender() { return run_.configuration().receiptPath() + ".receipt"; }
  void letWatchersTurn() {
    for (int turn = 0; turn < 3; ++turn) {
      watchers_->loop->perform([] {}, true);
    }
  }

  std::unique_ptr<tests::LoopThread> watchers_;
  std::optional<tests::VendedService> service_;
  ToldRun run_{"/Volumes/X/Installer.app"};
  QVNInstallStepStrategy step_{{}, "step", nullptr, run_, nullptr};
  std::unique_ptr<QVNReceiptClient> client_;
};

TEST_F(ReceiptMirroring, StatesOfTheReceiptReachTheRunOnTheThreadThatServesWatchers) {
  vendStatus(QVNInstallerStateRemoving);
  const tests::CapturedLog log;
  client_->startUpdatingCurrentStepStatusFromReceipt();
  postUpdate(sender());
  EXPECT_EQ(run_.told.get_future().get(), "status server thread");
  client_->stopUpdatingCurrentStepStatusFromReceipt();
  EXPECT_EQ(run_.states.front(), QVNInstallerStateRemoving);
  EXPECT_EQ(step_.installerState(), QVNInstallerStateRemoving);
  const ipc::Notification update{std::string(kQVNInstallationStatusUpdatedNotification), sender(), {}};
  EXPECT_TRUE(log.contains("Debug",
                           "----- <status server thread>[QVNReceiptClient handleReceiptStatusUpdateNotification:"
                           "aNotification\n\t aNotification = " +
                               update.description() + "\n\t[self.receiptStatusProxy getCurrentState]"))
      << log.text();
  const std::string about = " notifications on object: " + sender();
  EXPECT_TRUE(
      log.contains("Debug", "----- <status server thread>added observer for com.corvane.installer.update" + about));
  EXPECT_TRUE(
      log.contains("Debug", "----- <status server thread>removed observer for com.corvane.installer.update" + about));
}

TEST_F(ReceiptMirroring, NothingIsMirroredBeforeAfterOrForOthers) {
  vendStatus(QVNInstallerStateRemoving);
  const tests::CapturedLog log;
  postUpdate(sender());
  client_->startUpdatingCurrentStepStatusFromReceipt();
  postUpdate("/Volumes/Other/Installer.app.receipt");
  letWatchersTurn();
  client_->stopUpdatingCurrentStepStatusFromReceipt();
  postUpdate(sender());
  letWatchersTurn();
  EXPECT_TRUE(run_.states.empty());
}

TEST_F(ReceiptMirroring, AStateThatCannotBeHadChangesNothing) {
  std::promise<void> asked;
  vendStatus([&asked](std::string_view, auto) -> PropertyList {
    asked.set_value();
    throw ipc::RemoteException(ipc::kGenericException, "broken");
  });
  step_.setInstallerState(QVNInstallerStateFailed);
  const tests::CapturedLog log;
  client_->startUpdatingCurrentStepStatusFromReceipt();
  postUpdate(sender());
  asked.get_future().wait();
  client_->stopUpdatingCurrentStepStatusFromReceipt();
  EXPECT_EQ(step_.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(run_.states.empty());
}

TEST_F(ReceiptMirroring, OnAThreadThatHasEndedMeanwhileNothingIsMirroredAnyMore) {
  vendStatus(QVNInstallerStateRemoving);
  const tests::CapturedLog log;
  client_->startUpdatingCurrentStepStatusFromReceipt();
  watchers_->end();
  client_->stopUpdatingCurrentStepStatusFromReceipt();
  postUpdate(sender());
  EXPECT_TRUE(run_.states.empty());
}

TEST_F(ReceiptMirroring, AClientThatGoesStopsTheMirroring) {
  vendStatus(QVNInstallerStateRemoving);
  const tests::CapturedLog log;
  client_->startUpdatingCurrentStepStatusFromReceipt();
  postUpdate(sender());
  EXPECT_EQ(run_.told.get_future().get(), "status server thread");
  letWatchersTurn();
  const auto told = run_.states.size();
  client_.reset();
  postUpdate(sender());
  letWatchersTurn();
  EXPECT_EQ(run_.states.size(), told);
}

}  // namespace
}  // namespace deployer
