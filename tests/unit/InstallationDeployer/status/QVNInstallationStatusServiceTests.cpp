#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "InstallationDeployer/EngineNames.h"
#include "InstallationDeployer/status/QVNInstallationStatusService.h"
#include "InstallationDeployer/status/RunOrders.h"
#include "general/foundation/Thread.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/ClientConnection.h"
#include "general/ipc/NotificationObserver.h"
#include "general/ipc/RemoteException.h"
#include "general/ipc/ServiceSocket.h"
#include "general/system/ProcessSelf.h"
#include "general/system/SystemProfile.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRunFolder.h"

namespace deployer {
namespace {

using foundation::PropertyList;
using foundation::RunLoop;

constexpr const char* kIdentity = "/Volumes/X/Installer.app";
/// No socket can have it, so no service can be set up under it.
constexpr const char* kImpossibleName = "not/a/name";

class FakeRun : public WatchedRun {
 public:
  QVNInstallerState installerState() const override { return state; }
  void setInstallerState(QVNInstallerState newState) override {
    state = newState;
    const std::lock_guard lock(lock_);
    corrections_.push_back(newState);
  }
  std::uint64_t getProgress() override { return progress; }
  void cancelInstallation() override { cancelled = true; }
  bool mainThreadComplete() const override { return complete; }
  std::string postingNotificationId() const override { return kIdentity; }

  /// The states that the service itself set.
  std::vector<QVNInstallerState> corrections() {
    const std::lock_guard lock(lock_);
    return corrections_;
  }

  std::atomic<QVNInstallerState> state = QVNInstallerStatePreparing;
  std::atomic<std::uint64_t> progress = 0;
  std::atomic<bool> cancelled = false;
  std::atomic<bool> complete = false;

 private:
  std::mutex lock_;
  std::vector<QVNInstallerState> corrections_;
};

constexpr std::uint32_t kConsoleUser = 501;

RunOrders ordersOf(RunOrders::Givers givers, std::optional<std::uint32_t> consoleUser = kConsoleUser) {
  return {givers, [consoleUser] { return consoleUser; }};
}

class StatusService : public ::testing::Test {
 protected:
  FakeRun run_;
  QVNInstallationStatusService service_{kImpossibleName, run_, ordersOf(RunOrders::Givers::ConsoleUser)};
};

TEST_F(StatusService, GivesTheStateOfTheRun) {
  const tests::CapturedLog log;
  for (const auto state : {QVNInstallerStatePreparing, QVNInstallerStateInstalling, QVNInstallerStateSuccess,
                           QVNInstallerStateInsufficientDiskSpace, QVNInstallerStateCancelled}) {
    run_.state = state;
    EXPECT_EQ(service_.getCurrentState(), static_cast<std::int32_t>(state));
  }
  EXPECT_TRUE(log.contains(
      "Debug", "----- <" + foundation::currentThreadName() + ">[QVNInstallationStatusService getCurrentState] >>> 15"));
  EXPECT_TRUE(run_.corrections().empty());
}

TEST_F(StatusService, ActiveStateAfterTheWorkBecomesAFailure) {
  run_.state = QVNInstallerStateInstalling;
  run_.complete = true;
  const tests::CapturedLog log;
  EXPECT_EQ(service_.getCurrentState(), 1);
  EXPECT_EQ(run_.installerState(), QVNInstallerStateFailed);
  EXPECT_EQ(service_.getCurrentState(), 1);
  EXPECT_EQ(run_.corrections(), std::vector<QVNInstallerState>{QVNInstallerStateFailed});
  EXPECT_EQ(log.texts("Error"),
            std::vector<std::string>{
                "Internal error. The current state is an active state but the main thread has completed."});
}

TEST_F(StatusService, FinalStateAfterTheWorkStays) {
  run_.complete = true;
  for (const auto state :
       {QVNInstallerStateSuccess, QVNInstallerStateIncompatibleProduct, QVNInstallerStateCancelled}) {
    run_.state = state;
    EXPECT_EQ(service_.getCurrentState(), static_cast<std::int32_t>(state));
  }
  EXPECT_TRUE(run_.corrections().empty());
}

TEST_F(StatusService, PassesProgressAndCancellationOn) {
  run_.progress = 62;
  EXPECT_EQ(service_.getProgress(), 62);
  EXPECT_FALSE(run_.cancelled);
  service_.cancelInstallation();
  EXPECT_TRUE(run_.cancelled);
}

TEST_F(StatusService, AnnouncesNothingBeforeItHasStarted) {
  const tests::CapturedLog log;
  service_.stateUpdatedNotification();
  EXPECT_FALSE(service_.serviceStarted());
  EXPECT_EQ(service_.statusServerThread(), nullptr);
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(StatusService, ThatCannotBeSetUpSaysSoAndIsNotWaitedFor) {
  const tests::CapturedLog log;
  service_.startServer();
  EXPECT_TRUE(log.contains("Error", "Unable to acquire a connection for the installation deployer status service"));
  EXPECT_TRUE(log.contains("Error", "Nobody can watch this run: it ends without waiting for a watcher."));
  EXPECT_FALSE(service_.canBeReached());
  EXPECT_TRUE(log.contains("Debug", "<status server thread>startStatusService >> failed to setup status server."));
  EXPECT_FALSE(service_.serviceStarted());
  EXPECT_EQ(service_.statusServerThread(), nullptr);
  EXPECT_TRUE(service_.runLoopShouldKeepRunning());
  service_.stateUpdatedNotification();
  EXPECT_EQ(log.text().find("posting"), std::string::npos);

  service_.waitForServiceCompletion();
  EXPECT_TRUE(service_.runLoopShouldKeepRunning());
  service_.shutdownStatusServer();
  EXPECT_FALSE(service_.runLoopShouldKeepRunning());
  EXPECT_TRUE(log.contains("Debug", "Setting exit condition for the main run loop"));
}

TEST_F(StatusService, ToldToEndIsNotWaitedFor) {
  const tests::CapturedLog log;
  service_.shutdownService();
  service_.waitForServiceCompletion();
  EXPECT_TRUE(log.contains("Debug", "self.runLoopShouldKeepRunning = 0"));
}

/// Shows the service what a front end shows it.
class FrontEnd : public ipc::ConnectionDelegate {
 public:
  std::vector<std::byte> authenticationDataForComponents(std::span<const std::byte> /*components*/) override {
    const auto shown = platform::systemProfileData();
    return {shown.begin(), shown.end()};
  }
  bool authenticateComponents(std::span<const std::byte> /*components*/, std::span<const std::byte> data) override {
    return std::ranges::equal(data, platform::clientProfileData());
  }
};

class VendedStatusService : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const auto reason = tests::enterPrivateRunFolder()) {
      GTEST_SKIP() << *reason;
    }
    name_ = statusServiceNameOfProcess(platform::self::processIdentifier());
    service_.emplace(name_, run_, ordersOf(RunOrders::Givers::ConsoleUser));
  }
  std::unique_ptr<ipc::ClientConnection> connect() {
    auto connection = ipc::ClientConnection::connectionWithRegisteredName(name_);
    if (connection) {
      connection->setDelegate(&frontEnd_);
    }
    return connection;
  }
  static PropertyList ask(ipc::ClientConnection& connection, std::string_view selector) {
    return connection.invoke(*kQVNInstallationStatusProtocol.operation(selector), {});
  }
  /// Returns once the service knows that the watcher wants to hear of changes.
  static void observe(ipc::ClientConnection& connection) {
    connection.observeNotifications();
    ask(connection, "getProgress");
  }
  /// Waits for so many notifications.
  static std::vector<ipc::Notification> hear(ipc::ClientConnection& connection, std::size_t count) {
    std::vector<ipc::Notification> heard;
    while (heard.size() < count) {
      for (ipc::Notification& notification : connection.takeNotifications()) {
        heard.push_back(std::move(notification));
      }
      if (heard.size() < count) {
        pollfd input{connection.descriptor(), POLLIN, 0};
        poll(&input, 1, -1);
      }
    }
    return heard;
  }
  QVNInstallationStatusService& service() { return *service_; }

  std::string name_;
  FrontEnd frontEnd_;
  FakeRun run_;
  std::optional<QVNInstallationStatusService> service_;
};

TEST_F(VendedStatusService, AnswersOnItsOwnThreadAndLogsAsTheEngine) {
  const tests::CapturedLog log;
  service().startServer();
  EXPECT_TRUE(service().serviceStarted());
  const auto watcher = connect();
  ASSERT_NE(watcher, nullptr);
  run_.state = QVNInstallerStateInstalling;
  run_.progress = 40;
  EXPECT_EQ(ask(*watcher, "getCurrentState").integer(), 15);
  EXPECT_EQ(ask(*watcher, "getProgress").integer(), 40);
  ask(*watcher, "cancelInstallation");
  EXPECT_EQ(ask(*watcher, "getCurrentState").integer(), 15);
  EXPECT_TRUE(run_.cancelled);
  EXPECT_TRUE(
      log.contains("Debug", "----- <status server thread>[QVNInstallationStatusService getCurrentState] >>> 15"));
  EXPECT_NE(log.text().find(" Corvane Installer["), std::string::npos);
}

TEST_F(VendedStatusService, AnnouncesItselfUnderTheRunsIdentity) {
  std::vector<ipc::Notification> heard;
  ipc::NotificationObserver observer;
  ASSERT_TRUE(observer.isListening());
  observer.add(std::string(kQVNInstallationStatusServiceStartedNotification), kIdentity,
               [&](const ipc::Notification& notification) { heard.push_back(notification); });
  const tests::CapturedLog log;
  service().startServer();
  while (heard.empty()) {
    RunLoop::current()->runUntil(RunLoop::Clock::time_point::max());
  }
  EXPECT_EQ(heard[0].object, kIdentity);
  EXPECT_EQ(heard[0].userInfo, PropertyList::dictionary({{"serviceName", name_}}));
  EXPECT_TRUE(log.contains("Debug",
                           "----- <status server thread>[QVNInstallationStatusService setupStatusService]\n\tposting "
                           "com.corvane.installer.deployer.started to object: /Volumes/X/Installer.app with "
                           "serviceName: " +
                               name_));
}

TEST_F(VendedStatusService, ThatOthersKeepFromBeingSetUpLetsTheRunGoOnAndAnnouncesWhatComesAfter) {
  std::vector<std::string> heard;
  ipc::NotificationObserver observer;
  ASSERT_TRUE(observer.isListening());
  for (const std::string_view name :
       {kQVNInstallationStatusServiceStartedNotification, kQVNInstallationStatusUpdatedNotification}) {
    observer.add(std::string(name), kIdentity,
                 [&](const ipc::Notification& notification) { heard.push_back(notification.name); });
  }
  auto lock = ipc::ServiceFolderLock::acquire();
  ASSERT_TRUE(lock);
  const tests::CapturedLog log;
  service().startServer();
  EXPECT_FALSE(service().serviceStarted());
  EXPECT_EQ(service().statusServerThread(), nullptr);
  run_.state = QVNInstallerStateInstalling;
  service().stateUpdatedNotification();
  lock.reset();
  service().awaitStart();
  EXPECT_TRUE(service().serviceStarted());
  service().stateUpdatedNotification();
  while (heard.size() < 2) {
    RunLoop::current()->runUntil(RunLoop::Clock::time_point::max());
  }
  EXPECT_EQ(heard,
            (std::vector<std::string>{"com.corvane.installer.deployer.started", "com.corvane.installer.update"}));
  EXPECT_EQ(ask(*connect(), "getCurrentState").integer(), 15);
}

TEST_F(VendedStatusService, TellsEachObserverOfEachChangeOnce) {
  service().startServer();
  const auto first = connect();
  const auto second = connect();
  const auto silent = connect();
  ASSERT_TRUE(first && second && silent);
  observe(*first);
  observe(*second);
  const tests::CapturedLog log;
  for (int i = 0; i < 3; ++i) {
    service().stateUpdatedNotification();
  }
  for (const auto& watcher : {&first, &second}) {
    for (const ipc::Notification& heard : hear(**watcher, 3)) {
      EXPECT_EQ(heard.name, kQVNInstallationStatusUpdatedNotification);
      EXPECT_EQ(heard.object, kIdentity);
      EXPECT_TRUE(heard.userInfo.isNil());
    }
    ask(**watcher, "getCurrentState");
    EXPECT_TRUE((*watcher)->takeNotifications().empty());
  }
  ask(*silent, "getCurrentState");
  EXPECT_TRUE(silent->takeNotifications().empty());
  EXPECT_EQ(log.count("Debug", "----- <" + foundation::currentThreadName() +
                                   ">[QVNInstallationStatusService stateUpdatedNotification]\n\tposting "
                                   "com.corvane.installer.update to object: /Volumes/X/Installer.app"),
            3U);
}

TEST_F(VendedStatusService, WatcherNeverSeesAnActiveStateAfterTheWork) {
  service().startServer();
  run_.state = QVNInstallerStateValidating;
  run_.complete = true;
  const auto watcher = connect();
  ASSERT_NE(watcher, nullptr);
  EXPECT_EQ(ask(*watcher, "getCurrentState").integer(), 1);
  EXPECT_EQ(run_.corrections(), std::vector<QVNInstallerState>{QVNInstallerStateFailed});
}

TEST_F(VendedStatusService, WatcherLetsTheRunEnd) {
  const tests::CapturedLog log;
  service().startServer();
  const auto watcher = connect();
  ASSERT_NE(watcher, nullptr);
  ask(*watcher, "shutdownService");
  service().waitForServiceCompletion();
  EXPECT_FALSE(service().runLoopShouldKeepRunning());
  service_.reset();
  EXPECT_EQ(connect(), nullptr);
  EXPECT_TRUE(log.contains("Debug", "Shutting down service: " + name_ + " runLoopActive:NO"));
}

TEST_F(VendedStatusService, WhatWasAnnouncedBeforeTheShutdownStillArrives) {
  service().startServer();
  const auto watcher = connect();
  ASSERT_NE(watcher, nullptr);
  observe(*watcher);
  service().stateUpdatedNotification();
  service().shutdownStatusServer();
  service().waitForServiceCompletion();
  EXPECT_EQ(hear(*watcher, 1).size(), 1U);
}

TEST_F(VendedStatusService, ShutdownThatComesBeforeTheStartIsNotLost) {
  service().shutdownStatusServer();
  service().startServer();
  service().waitForServiceCompletion();
  service_.reset();
  EXPECT_EQ(connect(), nullptr);
}

TEST_F(VendedStatusService, AnnouncesChangesToOthersAfterItsEnd) {
  service().startServer();
  const auto loop = service().statusServerThread();
  service().shutdownStatusServer();
  while (loop->perform({}, true)) {
  }
  const tests::CapturedLog log;
  service().stateUpdatedNotification();
  EXPECT_EQ(log.texts("Debug").size(), 1U);
  EXPECT_EQ(service().statusServerThread(), loop);
}

TEST_F(VendedStatusService, NameThatIsTakenStaysWithItsOwner) {
  service().startServer();
  FakeRun otherRun;
  QVNInstallationStatusService other(name_, otherRun, ordersOf(RunOrders::Givers::ConsoleUser));
  const tests::CapturedLog log;
  other.startServer();
  EXPECT_FALSE(other.serviceStarted());
  EXPECT_TRUE(log.contains("Error", "Unable to acquire a connection for the installation deployer status service"));
  const auto watcher = connect();
  ASSERT_NE(watcher, nullptr);
  run_.state = QVNInstallerStateRemoving;
  EXPECT_EQ(ask(*watcher, "getCurrentState").integer(), 20);
}

/// Connects as another user: what the system tells of a peer is who it was when it connected.
class OtherUser {
 public:
  explicit OtherUser(uid_t user) : isOther_(seteuid(user) == 0) {}
  ~OtherUser() {
    if (seteuid(0) != 0) {
      std::abort();
    }
  }
  OtherUser(const OtherUser&) = delete;
  OtherUser& operator=(const OtherUser&) = delete;
  [[nodiscard]] bool isOther() const { return isOther_; }

 private:
  bool isOther_;
};

class OrdersToAStatusService : public VendedStatusService {
 protected:
  void vendFor(RunOrders orders) {
    service_.emplace(name_, run_, std::move(orders));
    service().startServer();
  }
  std::unique_ptr<ipc::ClientConnection> connectAs(uid_t user) {
    const OtherUser other(user);
    EXPECT_TRUE(other.isOther());
    return connect();
  }
  /// What the service said to the order; "" when it took it.
  std::string refusalOf(ipc::ClientConnection& connection, std::string_view order) {
    ask(connection, order);
    // Answered after the order was dealt with.
    ask(connection, "getProgress");
    const auto refusal = connection.takeRefusal();
    return refusal ? refusal->name() + ": " + refusal->what() : "";
  }
  std::string refusalOf(uid_t user, std::string_view order) {
    const auto connection = connectAs(user);
    return connection ? refusalOf(*connection, order) : "no connection";
  }

  static constexpr uid_t kStranger = 502;
  const std::string notYours_ =
      "CorvaneNotPermittedException: Only root and the user of the console session may cancel or release a run.";
  const std::string notOver_ = "CorvaneNotPermittedException: A run can be released only once its state is final.";
  const std::string rootsAlone_ =
      "CorvaneNotPermittedException: Only root may cancel or release this engine: another one started it and follows "
      "it.";
};

TEST_F(OrdersToAStatusService, OfAStrangerAreRefusedWithAnExceptionThatSaysSo) {
  const tests::CapturedLog log;
  vendFor(ordersOf(RunOrders::Givers::ConsoleUser));
  EXPECT_EQ(refusalOf(kStranger, "cancelInstallation"), notYours_);
  EXPECT_FALSE(run_.cancelled);
  run_.state = QVNInstallerStateSuccess;
  EXPECT_EQ(refusalOf(kStranger, "shutdownService"), notYours_);
  EXPECT_TRUE(service().runLoopShouldKeepRunning());
  EXPECT_FALSE(service().canceller());
  EXPECT_NE(log.text().find("Refused cancelInstallation of user 502, process " + std::to_string(getpid()) + " ("),
            std::string::npos);
}

TEST_F(OrdersToAStatusService, OfNobodyAtTheConsoleAreRootsAlone) {
  vendFor(ordersOf(RunOrders::Givers::ConsoleUser, std::nullopt));
  EXPECT_EQ(refusalOf(kConsoleUser, "cancelInstallation"), notYours_);
  EXPECT_EQ(refusalOf(0, "cancelInstallation"), "");
  EXPECT_TRUE(run_.cancelled);
}

TEST_F(OrdersToAStatusService, LetEveryUserLook) {
  vendFor(ordersOf(RunOrders::Givers::Root));
  run_.state = QVNInstallerStateInstalling;
  const auto stranger = connectAs(kStranger);
  ASSERT_NE(stranger, nullptr);
  EXPECT_EQ(ask(*stranger, "getCurrentState").integer(), 15);
  observe(*stranger);
  service().stateUpdatedNotification();
  EXPECT_EQ(hear(*stranger, 1).size(), 1U);
}

TEST_F(OrdersToAStatusService, OfTheConsolesUserCancelAtOnceAndReleaseOnceTheStateIsFinal) {
  const tests::CapturedLog log;
  vendFor(ordersOf(RunOrders::Givers::ConsoleUser));
  EXPECT_EQ(refusalOf(kConsoleUser, "cancelInstallation"), "");
  EXPECT_TRUE(run_.cancelled);
  EXPECT_EQ(refusalOf(kConsoleUser, "shutdownService"), notOver_);
  EXPECT_TRUE(service().runLoopShouldKeepRunning());
  run_.state = QVNInstallerStateCancelled;
  const auto watcher = connectAs(kConsoleUser);
  ASSERT_NE(watcher, nullptr);
  ask(*watcher, "shutdownService");
  service().waitForServiceCompletion();
  const std::string whose = "user 501, process " + std::to_string(getpid()) + " (";
  ASSERT_TRUE(service().canceller());
  EXPECT_TRUE(service().canceller()->starts_with(whose)) << *service().canceller();
  EXPECT_TRUE(log.contains("Notice", "Cancelled by " + *service().canceller())) << log.text();
}

TEST_F(OrdersToAStatusService, ToAnEngineThatAnotherOneStartedAreRootsAlone) {
  vendFor(ordersOf(RunOrders::Givers::Root));
  EXPECT_EQ(refusalOf(kConsoleUser, "cancelInstallation"), rootsAlone_);
  run_.state = QVNInstallerStateSuccess;
  EXPECT_EQ(refusalOf(kConsoleUser, "shutdownService"), rootsAlone_);
  EXPECT_FALSE(run_.cancelled);
  EXPECT_TRUE(service().runLoopShouldKeepRunning());
  EXPECT_EQ(refusalOf(0, "cancelInstallation"), "");
  EXPECT_TRUE(run_.cancelled);
}

TEST_F(VendedStatusService, BoundsTheLinesThatQuestionsCauseAndCountsWhatItLeftOut) {
  const tests::CapturedLog log;
  service().startServer();
  const auto watcher = connect();
  ASSERT_NE(watcher, nullptr);
  constexpr std::size_t kQuestions = 5000;
  for (std::size_t i = 0; i < kQuestions; ++i) {
    EXPECT_EQ(ask(*watcher, "getCurrentState").integer(), 11);
  }
  service_.reset();
  std::size_t logged = 0;
  std::size_t leftOut = 0;
  for (const std::string& text : log.texts("Debug")) {
    logged += text.ends_with("[QVNInstallationStatusService getCurrentState] >>> 11") ? 1U : 0U;
    if (const auto end = text.find(" requests of watchers were not logged"); end != std::string::npos) {
      leftOut += std::stoul(text.substr(0, end));
    }
  }
  EXPECT_GE(logged, 1000U);
  EXPECT_EQ(logged + leftOut, kQuestions);
  EXPECT_GT(leftOut, 0U);
}

TEST_F(OrdersToAStatusService, CountOnlyWhenTheyAreRequestsOfTheProtocol) {
  const tests::CapturedLog log;
  vendFor(ordersOf(RunOrders::Givers::ConsoleUser));
  const auto root = connect();
  ASSERT_NE(root, nullptr);
  EXPECT_THROW(root->invoke({"cancelInstallation", {}, ipc::ValueType::Nothing, false}, {}), ipc::RemoteException);
  EXPECT_FALSE(run_.cancelled);
  EXPECT_TRUE(log.texts("Notice").empty());
}

TEST_F(VendedStatusService, OthersMayHaveWorkDoneOnItsThread) {
  service().startServer();
  std::string thread;
  EXPECT_TRUE(service().statusServerThread()->perform([&] { thread = foundation::currentThreadName(); }, true));
  EXPECT_EQ(thread, "status server thread");
}

TEST_F(VendedStatusService, ServesWatchersWhileTheRunGoesOn) {
  service().startServer();
  constexpr int kChanges = 200;
  std::thread mainThread([this] {
    const EngineLog engineLog;
    for (int i = 0; i < kChanges; ++i) {
      run_.state = i % 2 == 0 ? QVNInstallerStateInstalling : QVNInstallerStateValidating;
      run_.progress = static_cast<std::uint64_t>(i) / 2;
      service().stateUpdatedNotification();
    }
    run_.state = QVNInstallerStateSuccess;
    run_.complete = true;
    service().stateUpdatedNotification();
    service().waitForServiceCompletion();
  });
  const auto watcher = connect();
  ASSERT_NE(watcher, nullptr);
  observe(*watcher);
  std::int64_t seen = ask(*watcher, "getCurrentState").integer().value_or(-1);
  while (seen != 0) {
    EXPECT_TRUE(seen == 11 || seen == 15 || seen == 16) << seen;
    EXPECT_LE(ask(*watcher, "getProgress").integer(), kChanges / 2);
    seen = ask(*watcher, "getCurrentState").integer().value_or(-1);
  }
  ask(*watcher, "shutdownService");
  mainThread.join();
  EXPECT_TRUE(run_.corrections().empty());
}

}  // namespace
}  // namespace deployer
