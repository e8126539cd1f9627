#include "InstallationDeployer/status/QVNInstallationStatusService.h"

#include <chrono>
#include <exception>
#include <span>
#include <utility>

#include "InstallationDeployer/EngineNames.h"
#include "InstallationDeployer/protocols/ServiceAnnouncement.h"
#include "general/ipc/DistributedNotifications.h"
#include "general/ipc/RemoteException.h"
#include "general/ipc/VRKConnectionAuthenticator.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::currentThreadName;
using foundation::RunLoop;

namespace {

constexpr const char* kStatusServerThreadName = "status server thread";
constexpr std::chrono::seconds kPatienceWithStart(2);
// Far more than front ends cause, which ask a few times a second and at each change; still little on a disk.
constexpr logging::LineBudget::Allowance kLinesOfEachUser{1000, 20};
constexpr logging::LineBudget::Allowance kLinesOfAllUsers{3000, 40};

}  // namespace

QVNInstallationStatusService::QVNInstallationStatusService(std::string serviceName, WatchedRun& controller,
                                                           RunOrders orders)
    : serviceName_(std::move(serviceName)),
      controller_(controller),
      orders_(std::move(orders)),
      requestLines_(kLinesOfEachUser, kLinesOfAllUsers) {}

QVNInstallationStatusService::~QVNInstallationStatusService() { stopKeepingRunning(); }

void QVNInstallationStatusService::startServer() {
  if (statusServerThread_) {
    return;
  }
  notificationObject_ = controller_.postingNotificationId();
  startThread();
  const auto deadline = RunLoop::Clock::now() + kPatienceWithStart;
  const foundation::MutexLock lock(lock_);
  while (!startFinished_ && runLoopCondition_.waitUntil(lock_, deadline)) {
  }
}

void QVNInstallationStatusService::awaitStart() {
  const foundation::MutexLock lock(lock_);
  while (!startFinished_) {
    runLoopCondition_.wait(lock_);
  }
}

void QVNInstallationStatusService::startThread() {
  try {
    statusServerThread_.emplace(kStatusServerThreadName, [this] {
      serverRole_.assumeHere();
      runThread();
    });
  } catch (const std::exception& exception) {
    logging::error("Unable to start the thread of the installation deployer status service. %@", exception.what());
    giveUpStart();
  }
}

void QVNInstallationStatusService::runThread() noexcept {
  const EngineLog log;
  try {
    startStatusService();
  } catch (const std::exception& exception) {
    logging::error("The installation deployer status service cannot go on. %@", exception.what());
  }
  // However it ended, nobody waits for this thread any more.
  connection_.reset();
  if (serviceStarted_) {
    stopKeepingRunning();
  } else {
    giveUpStart();
  }
}

void QVNInstallationStatusService::stateUpdatedNotification() {
  if (!serviceStarted_) {
    return;
  }
  const ipc::Notification update{std::string(kQVNInstallationStatusUpdatedNotification), notificationObject_, {}};
  logging::debug("----- <%@>[QVNInstallationStatusService stateUpdatedNotification]\n\tposting %@ to object: %@",
                 currentThreadName(), update.name, update.object);
  // Those who are connected hear of it on the thread that their connections belong to.
  statusServerThread()->perform(
      [this, update] {
        serverRole_.assumeHere();
        if (connection_) {
          connection_->sendNotification(update);
        }
      },
      false);
  ipc::postDistributedNotification(update);
}

void QVNInstallationStatusService::waitForServiceCompletion() {
  logging::debug("self.runLoopShouldKeepRunning = %d", runLoopShouldKeepRunning());
  const foundation::MutexLock lock(lock_);
  // A watcher who cannot come cannot say that the end was seen.
  while (runLoopShouldKeepRunning_ && !(startFinished_ && !canBeReached())) {
    runLoopCondition_.wait(lock_);
  }
}

void QVNInstallationStatusService::shutdownStatusServer() {
  logging::debug("Setting exit condition for the main run loop");
  stopKeepingRunning();
}

bool QVNInstallationStatusService::runLoopShouldKeepRunning() {
  const foundation::MutexLock lock(lock_);
  return runLoopShouldKeepRunning_;
}

std::shared_ptr<RunLoop> QVNInstallationStatusService::statusServerThread() {
  const foundation::MutexLock lock(lock_);
  return runLoop_;
}

std::int32_t QVNInstallationStatusService::getCurrentState() {
  // Asked before the state is read: once the work is over, the state read afterwards is the final one.
  const bool workIsOver = controller_.mainThreadComplete();
  const QVNInstallerState state = controller_.installerState();
  if (!isQuiet_) {
    logging::debug("----- <%@>[QVNInstallationStatusService getCurrentState] >>> %d", currentThreadName(),
                   static_cast<std::uint32_t>(state));
  }
  if (!isCompletionState(state) && workIsOver) {
    logging::error("Internal error. The current state is an active state but the main thread has completed.");
    controller_.setInstallerState(QVNInstallerStateFailed);
    return static_cast<std::int32_t>(QVNInstallerStateFailed);
  }
  return static_cast<std::int32_t>(state);
}

std::int64_t QVNInstallationStatusService::getProgress() {
  return static_cast<std::int64_t>(controller_.getProgress());
}

void QVNInstallationStatusService::cancelInstallation() { controller_.cancelInstallation(); }

void QVNInstallationStatusService::shutdownService() { shutdownStatusServer(); }

void QVNInstallationStatusService::startStatusService() {
  if (!setupStatusService()) {
    logging::debug("<%@>startStatusService >> failed to setup status server.", currentThreadName());
    return;
  }
  // The flag is true since the construction. It is not set again: that could undo a shutdown that came early.
  const auto runLoop = RunLoop::current();
  finishStart(runLoop);
  serveUntilShutdown(*runLoop);
  endServerThread();
}

bool QVNInstallationStatusService::setupStatusService() {
  if (!vend()) {
    connection_.reset();
    logging::error("Unable to acquire a connection for the installation deployer status service");
    return false;
  }
  const ipc::Notification started =
      serviceAnnouncement(kQVNInstallationStatusServiceStartedNotification, notificationObject_, serviceName_);
  logging::debug(
      "----- <%@>[QVNInstallationStatusService setupStatusService]\n\tposting %@ to object: %@ with serviceName: %@",
      currentThreadName(), started.name, started.object, serviceName_);
  ipc::postDistributedNotification(started);
  return true;
}

bool QVNInstallationStatusService::vend() {
  try {
    ipc::ServerConnection::Options options;
    options.peers = ipc::ServerConnection::Peers::Everybody;
    options.refusal = kNotPermittedException;
    connection_ = std::make_unique<ipc::ServerConnection>(options);
    connection_->setDelegate(std::make_shared<ipc::VRKConnectionAuthenticator>());
    connection_->setRootObject(
        std::make_shared<const ipc::ProtocolChecker>(guardedTarget(), kQVNInstallationStatusProtocol));
    return connection_->registerName(serviceName_);
  } catch (const std::exception& exception) {
    logging::error("%@", exception.what());
    return false;
  }
}

ipc::Target QVNInstallationStatusService::guardedTarget() {
  return [this, target = targetFor(*this)](std::string_view selector,
                                           std::span<const foundation::PropertyList> arguments) {
    serverRole_.assumeHere();
    const auto caller = connection_->caller();
    if (selector == status_selectors::kGetCurrentState) {
      isQuiet_ = !mayBeLogged(caller);
    }
    admit(selector, caller);
    const bool isCancel = selector == status_selectors::kCancelInstallation;
    if (isCancel) {
      rememberCanceller(descriptionOf(caller));
    }
    auto result = target(selector, arguments);
    if (isCancel) {
      noteCancel(caller);
    }
    return result;
  };
}

void QVNInstallationStatusService::admit(std::string_view selector, const std::optional<ipc::Caller>& caller) {
  try {
    orders_.require(selector, caller, controller_.installerState());
  } catch (const ipc::RemoteException& refusal) {
    if (mayBeLogged(caller)) {
      logging::notice("Refused %@ of %@. %@", selector, descriptionWithProgram(caller), refusal.what());
    }
    throw;
  }
}

void QVNInstallationStatusService::noteCancel(const std::optional<ipc::Caller>& caller) {
  // The first one is always told of.
  if (mayBeLogged(caller) || !std::exchange(wasCancelTold_, true)) {
    wasCancelTold_ = true;
    // Looked up only now: the wish to cancel does not wait for it.
    const std::string whose = descriptionWithProgram(caller);
    logging::notice("Cancelled by %@", whose);
    rememberCanceller(whose);
  }
}

void QVNInstallationStatusService::rememberCanceller(const std::string& whose) {
  const foundation::MutexLock lock(lock_);
  // The same one, with the program by now, or another one, who came later.
  if (!canceller_ || whose.starts_with(*canceller_)) {
    canceller_ = whose;
  }
}

std::optional<std::string> QVNInstallationStatusService::canceller() {
  const foundation::MutexLock lock(lock_);
  return canceller_;
}

bool QVNInstallationStatusService::mayBeLogged(const std::optional<ipc::Caller>& caller) {
  if (!caller || !requestLines_.take(caller->user)) {
    return false;
  }
  tellLeftOut();
  return true;
}

void QVNInstallationStatusService::tellLeftOut() {
  if (const std::size_t leftOut = requestLines_.takeLeftOut(); leftOut > 0) {
    logging::debug("%lu requests of watchers were not logged: there were too many at once.", leftOut);
  }
}

void QVNInstallationStatusService::serveUntilShutdown(RunLoop& runLoop) {
  try {
    runLoop.runWhile([this] { return runLoopShouldKeepRunning(); },
                     [this] {
                       serverRole_.assumeHere();
                       noteStarvation();
                     });
    // What was asked or announced before the shutdown is still answered and sent.
    runLoop.runUntil(RunLoop::Clock::now());
  } catch (const std::exception& exception) {
    logging::error("The installation deployer status service cannot go on. %@", exception.what());
  }
}

void QVNInstallationStatusService::noteStarvation() {
  const bool isStarved = connection_->isStarved();
  if (isStarved && !isStarved_) {
    logging::error("The installation deployer status service can let nobody in: no descriptor is left.");
  }
  const foundation::MutexLock lock(lock_);
  isStarved_ = isStarved;
  runLoopCondition_.notifyAll();
}

void QVNInstallationStatusService::endServerThread() {
  tellLeftOut();
  connection_.reset();
  stopKeepingRunning();
  logging::debug("Shutting down service: %@ runLoopActive:%@", serviceName_, runLoopShouldKeepRunning() ? "YES" : "NO");
}

void QVNInstallationStatusService::giveUpStart() {
  logging::error("Nobody can watch this run: it ends without waiting for a watcher.");
  finishStart(nullptr);
}

void QVNInstallationStatusService::finishStart(std::shared_ptr<RunLoop> runLoop) {
  const foundation::MutexLock lock(lock_);
  serviceStarted_ = runLoop != nullptr;
  runLoop_ = std::move(runLoop);
  startFinished_ = true;
  runLoopCondition_.notifyAll();
}

void QVNInstallationStatusService::stopKeepingRunning() {
  const foundation::MutexLock lock(lock_);
  runLoopShouldKeepRunning_ = false;
  runLoopCondition_.notifyAll();
  if (runLoop_) {
    runLoop_->wakeUp();
  }
}

}  // namespace deployer
