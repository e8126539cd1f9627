#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/Mutex.h"
#include "general/foundation/ThreadRole.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/foundation/execution/Task.h"
#include "general/ipc/NotificationObserver.h"

namespace deployer {

/// Hands a phase to an engine in another bundle and follows that engine to its end: its active states climb this tree,
/// its final state becomes this step's, its progress is this step's.
///
/// The program of the bundle is a child of this process and is killed with it. Whatever process announces itself for
/// the bundle last is followed, the child or one that the child has started. The step waits as long as there is
/// somebody to follow, without time limit; cancelling this run does not reach the other one. Notifications make the
/// step react at once. Nothing depends on them alone: when none has come for half a second, the engine is asked all the
/// same.
///
/// getProgress() may be called from any thread. Everything else, the destructor included, belongs to the thread that
/// made the step.
class QVNExternalInstallationDeployerStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  /// After a success that came before the child's end, waits until the child has done its work, and lets it end.
  ~QVNExternalInstallationDeployerStrategy() override;
  QVNExternalInstallationDeployerStrategy(const QVNExternalInstallationDeployerStrategy&) = delete;
  QVNExternalInstallationDeployerStrategy& operator=(const QVNExternalInstallationDeployerStrategy&) = delete;

  /// What the other engine answers, asked on the calling thread; what it answered last when it does not. 0 until it can
  /// be reached. An engine that falls silent holds the caller up for one call's time-out.
  [[nodiscard]] std::uint64_t getProgress() override;
  [[nodiscard]] std::string_view className() const override { return "QVNExternalInstallationDeployerStrategy"; }

  /// Starts the engine without waiting for it. Throws foundation::TaskLaunchException when it cannot be started.
  virtual bool launchExternalExecutable(const std::string& executable, const std::string& productName);
  void handleInstallationStatusServiceStartNotification(const ipc::Notification& notification);
  void handleInstallationStatusUpdateNotification(const ipc::Notification& notification);
  /// Asks the engine for its state and takes it over. An engine that nobody has heard of yet, and that cannot be found
  /// either, counts as one that ended with success; one that was heard of and does not answer changes nothing.
  void updateInstallerState();

 private:
  /// True only when the other engine ended with success.
  [[nodiscard]] bool work() override;
  void observe(const std::optional<std::string>& bundlePath) CORVANE_REQUIRES(stepRole_);
  /// False when there is nothing to wait for; why has been logged.
  [[nodiscard]] bool launch(const std::string& executable, const std::string& productName);
  void waitForFinalState(const std::string& executable) CORVANE_REQUIRES(stepRole_);
  /// Between two turns of the wait: ends it when the child has ended and there is nobody else to follow, and asks an
  /// engine that was not heard of.
  void lookAfterEngine(const std::string& executable) CORVANE_REQUIRES(stepRole_);
  /// Asks the engine although nothing was heard of it.
  void askUnheard() CORVANE_REQUIRES(stepRole_);
  /// Follows the engine from now on if it answers under its name; gives it up when this process cannot even ask, time
  /// and again.
  void lookForEngine(const std::string& name) CORVANE_REQUIRES(stepRole_);
  /// Of the child, when that is the engine that was followed.
  void waitForExit() CORVANE_REQUIRES(stepRole_);
  void letEngineFinish() CORVANE_REQUIRES(stepRole_);
  /// Whether the child is an engine, as far as can be told, that goes on without being followed.
  [[nodiscard]] bool isAtWork() CORVANE_REQUIRES(stepRole_);

  /// Whether the service that was announced last is another process's than the child's and is still there.
  [[nodiscard]] bool isFollowingAnother() const CORVANE_REQUIRES(stepRole_);
  /// Under what name the child vends, if it does.
  [[nodiscard]] std::string ownServiceName() const CORVANE_REQUIRES(stepRole_);
  /// Follows the service from now on.
  void reach(const std::string& serviceName) CORVANE_REQUIRES(stepRole_);
  /// What the engine answers; nothing when it does not.
  [[nodiscard]] std::optional<QVNInstallerState> stateFrom(QVNInstallationStatusProxy& proxy)
      CORVANE_REQUIRES(stepRole_);
  void takeState(QVNInstallerState state) CORVANE_REQUIRES(stepRole_);
  void shutdownExternalEngine() CORVANE_REQUIRES(stepRole_);
  [[nodiscard]] std::optional<std::string> serviceName() const;

  foundation::ThreadRole stepRole_;  // of the thread that made the step
  std::unique_ptr<ipc::NotificationObserver> observer_ CORVANE_GUARDED_BY(stepRole_);
  std::optional<foundation::Task> engine_ CORVANE_GUARDED_BY(stepRole_);
  std::unique_ptr<QVNInstallationStatusProxy> installationDeployer_ CORVANE_GUARDED_BY(stepRole_);
  bool runLoopShouldKeepRunning_ CORVANE_GUARDED_BY(stepRole_) = false;
  int looksInVain_ CORVANE_GUARDED_BY(stepRole_) = 0;
  /// When the engine was last heard of or asked.
  foundation::RunLoop::Clock::time_point lastNews_ CORVANE_GUARDED_BY(stepRole_);

  std::atomic<bool> isAnswering_ = false;
  mutable foundation::Mutex lock_;
  std::optional<std::string> installationDeployerServiceName_ CORVANE_GUARDED_BY(lock_);
};

}  // namespace deployer
