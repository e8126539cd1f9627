#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "InstallationDeployer/status/RunOrders.h"
#include "InstallationDeployer/status/WatchedRun.h"
#include "general/foundation/Mutex.h"
#include "general/foundation/Thread.h"
#include "general/foundation/ThreadRole.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/ServerConnection.h"
#include "general/logging/LineBudget.h"

namespace deployer {

/// Lets others follow a run: vends its state and progress under a name on a thread of its own, announces itself and
/// every later change of the state, takes requests to cancel, and keeps the run from ending before a watcher has said
/// that it saw the end.
///
/// The operations of the protocol run on the status server thread; the rest may be called from any thread, but for
/// startServer() and waitForServiceCompletion(), which belong to the run's main thread.
class QVNInstallationStatusService : public QVNInstallationStatusProtocol {
 public:
  /// @param controller the run; it outlives the service.
  /// @param orders whose orders it takes from outside; root's alone when nothing else is said.
  QVNInstallationStatusService(std::string serviceName, WatchedRun& controller,
                               RunOrders orders = RunOrders(RunOrders::Givers::Root, {}));
  /// Ends the service if nobody did, and waits for its thread.
  ~QVNInstallationStatusService() override;
  QVNInstallationStatusService(const QVNInstallationStatusService&) = delete;
  QVNInstallationStatusService& operator=(const QVNInstallationStatusService&) = delete;

  /// Starts the thread. Gives the service a moment in which to be set up and announced, so that in an ordinary run
  /// every change of the state after this call is announced. The run does not depend on it: where others keep the
  /// service from being set up it goes on, unwatched or watched later, and changes before that are not announced.
  void startServer();
  /// Waits until it is decided whether the service can be set up, for a run that is nothing without it.
  void awaitStart();
  /// Announces a change of the run's state. Before the service has started it does nothing.
  void stateUpdatedNotification();
  /// Waits until the service was told to end; one that is still being set up, until that is decided. When it could not
  /// be set up, or can let nobody in, there is nobody to wait for.
  void waitForServiceCompletion();
  /// Lets the service end, and with it who waits for its completion.
  void shutdownStatusServer();

  [[nodiscard]] const std::string& serviceName() const { return serviceName_; }
  [[nodiscard]] bool serviceStarted() const { return serviceStarted_; }
  /// Whether a watcher can come: the service was set up, and the process has what it takes to let one in.
  [[nodiscard]] bool canBeReached() const { return serviceStarted_ && !isStarved_; }
  /// Who cancelled the run first, for people; nothing while nobody has.
  [[nodiscard]] std::optional<std::string> canceller();
  /// True until the service is told to end, also when it could not be set up.
  [[nodiscard]] bool runLoopShouldKeepRunning();
  /// The run loop of the status server thread, also after the service has ended; null before startServer() and when the
  /// service could not be set up.
  [[nodiscard]] std::shared_ptr<foundation::RunLoop> statusServerThread();

  // What watchers ask; see QVNInstallationStatusProtocol.
  /// A state that is still active although the work is over is an error, and the run then counts as failed.
  [[nodiscard]] std::int32_t getCurrentState() override;
  [[nodiscard]] std::int64_t getProgress() override;
  void cancelInstallation() override;
  void shutdownService() override;

 private:
  void startThread();

  // On the status server thread.
  /// The body of the thread. Ends every wait for it, however it ends.
  void runThread() noexcept CORVANE_REQUIRES(serverRole_);
  void startStatusService() CORVANE_REQUIRES(serverRole_);
  /// Vends and announces the service. False, with the error in the log, when it cannot be vended.
  [[nodiscard]] bool setupStatusService() CORVANE_REQUIRES(serverRole_);
  [[nodiscard]] bool vend() CORVANE_REQUIRES(serverRole_);
  /// What is vended: the operations of the protocol, each for those who may ask for it.
  [[nodiscard]] ipc::Target guardedTarget() CORVANE_REQUIRES(serverRole_);
  void admit(std::string_view selector, const std::optional<ipc::Caller>& caller) CORVANE_REQUIRES(serverRole_);
  void noteCancel(const std::optional<ipc::Caller>& caller) CORVANE_REQUIRES(serverRole_);
  void rememberCanceller(const std::string& whose);
  /// Whether a request of this caller may be mentioned in the log.
  [[nodiscard]] bool mayBeLogged(const std::optional<ipc::Caller>& caller) CORVANE_REQUIRES(serverRole_);
  void tellLeftOut() CORVANE_REQUIRES(serverRole_);
  void serveUntilShutdown(foundation::RunLoop& runLoop);
  /// Between two turns: tells who waits for the end of the service when nobody can be let in any more.
  void noteStarvation() CORVANE_REQUIRES(serverRole_);
  void endServerThread() CORVANE_REQUIRES(serverRole_);
  /// The run goes on unwatched.
  void giveUpStart();
  /// Lets startServer() return.
  /// @param runLoop null when nothing is served.
  void finishStart(std::shared_ptr<foundation::RunLoop> runLoop);

  // On any thread.
  /// Clears the flag and wakes whoever waits for that, the status server thread included.
  void stopKeepingRunning();

  const std::string serviceName_;
  WatchedRun& controller_;
  const RunOrders orders_;
  std::string notificationObject_;  // set before the thread starts, then constant
  std::atomic<bool> serviceStarted_ = false;
  std::atomic<bool> isStarved_ = false;

  foundation::Mutex lock_;
  foundation::Condition runLoopCondition_;
  bool runLoopShouldKeepRunning_ CORVANE_GUARDED_BY(lock_) = true;
  bool startFinished_ CORVANE_GUARDED_BY(lock_) = false;
  std::optional<std::string> canceller_ CORVANE_GUARDED_BY(lock_);
  std::shared_ptr<foundation::RunLoop> runLoop_ CORVANE_GUARDED_BY(lock_);

  foundation::ThreadRole serverRole_;  // of the status server thread
  bool wasCancelTold_ CORVANE_GUARDED_BY(serverRole_) = false;
  logging::LineBudget requestLines_ CORVANE_GUARDED_BY(serverRole_);
  std::atomic<bool> isQuiet_ = false;  // the question that is answered is not logged
  std::unique_ptr<ipc::ServerConnection> connection_ CORVANE_GUARDED_BY(serverRole_);
  std::optional<foundation::NamedThread> statusServerThread_;
};

}  // namespace deployer
