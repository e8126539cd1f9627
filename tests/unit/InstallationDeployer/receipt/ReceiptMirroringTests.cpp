#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>

#include "InstallationDeployer/EngineLog.h"
#include "InstallationDeployer/receipt/QVNReceiptClient.h"
#include "InstallationDeployer/receipt/QVNReceiptServiceStrategy.h"
#include "general/foundation/Thread.h"
#include "general/ipc/ServerConnection.h"
#include "general/ipc/VRKConnectionAuthenticator.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeInstallRun.h"
#include "tests/support/PrivateRunFolder.h"

namespace deployer {
namespace {

using foundation::PropertyList;
using foundation::RunLoop;

constexpr const char* kStatusService = "com.corvane.installer.77";

/// A thread that turns its run loop until it is ended.
class LoopThread {
 public:
  explicit LoopThread(const std::string& name)
      : thread_(std::make_unique<foundation::NamedThread>(name, [this] { run(); })) {
    loop = started_.get_future().get();
  }
  ~LoopThread() { end(); }
  LoopThread(const LoopThread&) = delete;
  LoopThread& operator=(const LoopThread&) = delete;

  void end() {
    ended_ = true;
    loop->wakeUp();
    thread_.reset();
  }
  std::shared_ptr<RunLoop> loop;

 private:
  void run() {
    const EngineLog log;
    const auto own = RunLoop::current();
    own->addTimer(std::chrono::milliseconds(500), true, {});
    started_.set_value(own);
    while (!ended_) {
      own->runUntil(RunLoop::Clock::now() + std::chrono::milliseconds(500));
    }
  }

  std::atomic<bool> ended_ = false;
  std::promise<std::shared_ptr<RunLoop>> started_;
  std::unique_ptr<foundation::NamedThread> thread_;
};

/// Lets a test wait for the first state that it is told.
class ToldRun : public tests::FakeInstallRun {
 public:
  using FakeInstallRun::FakeInstallRun;
  void setInstallerState(QVNInstallerState state) override {
    FakeInstallRun::setInstallerState(state);
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
    client_.setStrategy(&step_);
    watchers_ = std::make_unique<LoopThread>("status server thread");
    run_.statusThread = watchers_->loop;
  }
  /// Vends a status service that always answers with this state.
  void vendStatus(QVNInstallerState state) {
    service_ = std::make_unique<LoopThread>("receipt");
    service_->loop->perform(
        [this, state] {
          connection_ = std::make_unique<ipc::ServerConnection>(ipc::ServerConnection::Options{});
          connection_->setDelegate(std::make_shared<ipc::VRKConnectionAuthenticator>());
          connection_->setRootObject(std::make_shared<ipc::ProtocolChecker>(
              [state](std::string_view, std::span<const PropertyList>) {
                return PropertyList(static_cast<std::int64_t>(state));
              },
              kQVNInstallationStatusProtocol));
          ASSERT_TRUE(connection_->registerName(kStatusService));
        },
        true);
    const tests::CapturedLog log;
    client_.handleReceiptStatusStartNotification(
        {"started", "object", PropertyList::dictionary({{"serviceName", kStatusService}})});
  }
  void TearDown() override {
    if (service_) {
      service_->loop->perform([this] { connection_.reset(); }, true);
    }
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

  std::unique_ptr<LoopThread> watchers_;
  std::unique_ptr<LoopThread> service_;
  std::unique_ptr<ipc::ServerConnection> connection_;
  ToldRun run_{"/Volumes/X/Installer.app"};
  QVNInstallStepStrategy step_{{}, "step", nullptr, run_, nullptr};
  QVNReceiptClient client_;
};

TEST_F(ReceiptMirroring, StatesOfTheReceiptReachTheRunOnTheThreadThatServesWatchers) {
  vendStatus(QVNInstallerStateRemoving);
  const tests::CapturedLog log;
  client_.startUpdatingCurrentStepStatusFromReceipt();
  postUpdate(sender());
  EXPECT_EQ(run_.told.get_future().get(), "status server thread");
  client_.stopUpdatingCurrentStepStatusFromReceipt();
  EXPECT_EQ(run_.states.front(), QVNInstallerStateRemoving);
  EXPECT_EQ(step_.installerState(), QVNInstallerStateRemoving);
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
  client_.startUpdatingCurrentStepStatusFromReceipt();
  postUpdate("/Volumes/Other/Installer.app.receipt");
  letWatchersTurn();
  client_.stopUpdatingCurrentStepStatusFromReceipt();
  postUpdate(sender());
  letWatchersTurn();
  EXPECT_TRUE(run_.states.empty());
}

TEST_F(ReceiptMirroring, AThreadThatEndsMeanwhileTakesTheObserverWithIt) {
  vendStatus(QVNInstallerStateRemoving);
  const tests::CapturedLog log;
  client_.startUpdatingCurrentStepStatusFromReceipt();
  watchers_->end();
  client_.stopUpdatingCurrentStepStatusFromReceipt();
  postUpdate(sender());
  EXPECT_TRUE(run_.states.empty());
}

TEST_F(ReceiptMirroring, AClientThatGoesStopsTheMirroring) {
  auto client = std::make_unique<QVNReceiptClient>();
  client->setStrategy(&step_);
  const tests::CapturedLog log;
  client->startUpdatingCurrentStepStatusFromReceipt();
  client.reset();
  postUpdate(sender());
  letWatchersTurn();
  EXPECT_TRUE(run_.states.empty());
}

}  // namespace
}  // namespace deployer
