#include "InstallationDeployer/nested/QVNExternalInstallationDeployerStrategy.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/EngineOptions.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/protocols/ServiceAnnouncement.h"
#include "general/foundation/Paths.h"
#include "general/foundation/Thread.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/foundation/execution/TaskExitSource.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/ipc/RemoteException.h"
#include "general/ipc/ServiceSocket.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::RunLoop;
using foundation::Task;
using ipc::Notification;
namespace paths = foundation::paths;

namespace {

constexpr std::int64_t kCompleteProgress = 100;
// How often an engine is looked for that this process cannot even ask for.
constexpr int kMostLooksInVain = 10;

std::optional<std::string> textIn(const foundation::PropertyList& dictionary, std::string_view key) {
  const auto text = dictionary[key].string();
  return text ? std::optional<std::string>(*text) : std::nullopt;
}

/// Why this process cannot even ask the service; nothing when the service is not there yet or does not answer.
std::optional<std::string> whyNobodyCanAsk(const std::string& service,
                                           const std::optional<ipc::RemoteException>& exception) {
  if (exception && exception->name() == ipc::kFailedAuthenticationException) {
    return exception->what();
  }
  if (ipc::vendingUnder(service) == ipc::Vending::CannotTell) {
    return std::strerror(errno);
  }
  return std::nullopt;
}

}  // namespace

QVNExternalInstallationDeployerStrategy::~QVNExternalInstallationDeployerStrategy() {
  stepRole_.assumeHere();
  if (installerState() == QVNInstallerStateSuccess && isAtWork()) {
    letEngineFinish();
  }
}

bool QVNExternalInstallationDeployerStrategy::work() {
  stepRole_.assumeHere();
  const auto bundlePath = textIn(installPhaseDictionary(), kQVNInstallPhaseExternalBundlePath);
  const auto productName = textIn(installPhaseDictionary(), kQVNInstallPhaseExternalProductName);
  observe(bundlePath);
  if (!bundlePath) {
    return fail("External deployer path is invalid");
  }
  const std::string executable = paths::append(*bundlePath, kQVNInstallationDeployerPath);
  if (!productName) {
    return fail("No product is named for the external deployer at %@", executable);
  }
  if (!launch(executable, *productName)) {
    return failWith();
  }
  waitForFinalState(executable);
  logging::debug("%@ exited run loop with installer state: %d", qualifiedName(),
                 static_cast<std::uint32_t>(installerState()));
  waitForExit();
  return installerState() == QVNInstallerStateSuccess;
}

void QVNExternalInstallationDeployerStrategy::observe(const std::optional<std::string>& bundlePath) {
  // Where nothing can be heard, the engine is asked all the same.
  observer_ = std::make_unique<ipc::NotificationObserver>();
  // The observer lives as long as the step does; what it hears after the wait concerns nobody.
  observer_->add(std::string(kQVNInstallationStatusServiceStartedNotification), bundlePath,
                 [this](const Notification& notification) {
                   stepRole_.assumeHere();
                   if (runLoopShouldKeepRunning_) {
                     handleInstallationStatusServiceStartNotification(notification);
                   }
                 });
  observer_->add(std::string(kQVNInstallationStatusUpdatedNotification), bundlePath,
                 [this](const Notification& notification) {
                   stepRole_.assumeHere();
                   if (runLoopShouldKeepRunning_) {
                     handleInstallationStatusUpdateNotification(notification);
                   }
                 });
  logging::debug("----- added observers for %@ and %@ notifications on object: %@",
                 kQVNInstallationStatusServiceStartedNotification, kQVNInstallationStatusUpdatedNotification,
                 bundlePath);
}

bool QVNExternalInstallationDeployerStrategy::launch(const std::string& executable, const std::string& productName) {
  try {
    static_cast<void>(launchExternalExecutable(executable, productName));
  } catch (const foundation::TaskLaunchException& exception) {
    logging::error("Failed to launch external deployer at %@. %@", executable, exception.what());
    // Somebody else may run an engine that is not there yet. What the system lacks now, nobody brings.
    return exception.cause() == foundation::TaskLaunchException::Cause::Program;
  }
  return true;
}

bool QVNExternalInstallationDeployerStrategy::launchExternalExecutable(const std::string& executable,
                                                                       const std::string& productName) {
  stepRole_.assumeHere();
  Task task(executable, {kInstallOption, kUserInterfaceOption, kProductNameOption, productName});
  // Without its parent nobody would follow it or let it end.
  task.setEndsWithParent(true);
  task.setVariable(kNestedEngineVariable, "1");
  task.launch();
  engine_.emplace(std::move(task));
  return true;
}

void QVNExternalInstallationDeployerStrategy::waitForFinalState(const std::string& executable) {
  runLoopShouldKeepRunning_ = true;
  lastNews_ = RunLoop::Clock::now();
  const auto loop = RunLoop::current();
  std::optional<foundation::TaskExitSource> exit;
  if (engine_) {
    exit.emplace(*loop, *engine_);
  }
  loop->runWhile(
      [this] {
        stepRole_.assumeHere();
        return runLoopShouldKeepRunning_;
      },
      [&] {
        stepRole_.assumeHere();
        if (engine_ && !engine_->isRunning()) {
          exit.reset();
        }
        lookAfterEngine(executable);
      });
}

void QVNExternalInstallationDeployerStrategy::lookAfterEngine(const std::string& executable) {
  if (engine_ && !engine_->isRunning() && !isFollowingAnother()) {
    logging::error("The external deployer %@ ended before its final state was known (%@).", executable,
                   engine_->endDescription());
    setInstallerState(QVNInstallerStateFailed);
    runLoopShouldKeepRunning_ = false;
  } else if (RunLoop::Clock::now() - lastNews_ >= RunLoop::kTurn) {
    askUnheard();
  }
}

void QVNExternalInstallationDeployerStrategy::askUnheard() {
  lastNews_ = RunLoop::Clock::now();
  // Somebody may have announced a service that is not there.
  if (engine_ && serviceName() != ownServiceName() && !isFollowingAnother()) {
    lookForEngine(ownServiceName());
  }
  if (!installationDeployer_) {
    return;
  }
  // A state that is known already is not announced again.
  const auto state = stateFrom(*installationDeployer_);
  if (state && (*state != installerState() || isCompletionState(*state))) {
    takeState(*state);
  }
}

void QVNExternalInstallationDeployerStrategy::lookForEngine(const std::string& name) {
  const auto proxy = QVNInstallationStatusProxy::ofService(name);
  if (stateFrom(*proxy)) {
    reach(name);
    return;
  }
  const auto why = whyNobodyCanAsk(name, proxy->remote().recentException());
  if (why && ++looksInVain_ >= kMostLooksInVain) {
    logging::error("Unable to reach the external deployer %@. %@", name, why);
    setInstallerState(QVNInstallerStateFailed);
    runLoopShouldKeepRunning_ = false;
  }
}

void QVNExternalInstallationDeployerStrategy::waitForExit() {
  if (!engine_ || serviceName() != ownServiceName()) {
    return;
  }
  while (!engine_->waitUntilExit(RunLoop::Clock::now() + RunLoop::kTurn)) {
    // In case it did not get through.
    installationDeployer_->shutdownService();
  }
}

void QVNExternalInstallationDeployerStrategy::letEngineFinish() {
  logging::notice("Waiting for the external deployer with process %d, which is still at work.",
                  engine_->processIdentifier());
  const auto proxy = QVNInstallationStatusProxy::ofService(ownServiceName());
  while (!engine_->waitUntilExit(RunLoop::Clock::now() + RunLoop::kTurn)) {
    const auto state = stateFrom(*proxy);
    if (state && isCompletionState(*state)) {
      proxy->shutdownService();
    }
  }
}

bool QVNExternalInstallationDeployerStrategy::isAtWork() {
  return engine_ && engine_->isRunning() &&
         (!installationDeployer_ || ipc::vendingUnder(ownServiceName()) == ipc::Vending::Yes);
}

bool QVNExternalInstallationDeployerStrategy::isFollowingAnother() const {
  const auto name = serviceName();
  return name && name != ownServiceName() && ipc::vendingUnder(*name) != ipc::Vending::No;
}

void QVNExternalInstallationDeployerStrategy::handleInstallationStatusServiceStartNotification(
    const Notification& notification) {
  stepRole_.assumeHere();
  logging::debug("----- <%@>[%@ handleInstallationStatusServiceStartNotification:%@]", foundation::currentThreadName(),
                 qualifiedName(), notification.description());
  const auto name = announcedService(notification);
  if (!name) {
    return;
  }
  reach(*name);
  updateInstallerState();
}

void QVNExternalInstallationDeployerStrategy::handleInstallationStatusUpdateNotification(
    const Notification& notification) {
  logging::debug("----- <%@>[%@ handleInstallationStatusUpdateNotification:aNotification]\n\taNotification = %@",
                 foundation::currentThreadName(), qualifiedName(), notification.description());
  updateInstallerState();
}

void QVNExternalInstallationDeployerStrategy::updateInstallerState() {
  stepRole_.assumeHere();
  lastNews_ = RunLoop::Clock::now();
  logging::debug(
      "----- <%@>[QVNExternalInstallationDeployerStrategy updateInstallerState]\n\tself.installationDeployer = "
      "%@\n\t[<QVNInstallationStatusProtocol>%@ getCurrentState]",
      foundation::currentThreadName(),
      installationDeployer_ ? installationDeployer_->description() : foundation::format("%@", nullptr), serviceName());
  if (!installationDeployer_ && engine_) {
    // Its start may have gone unheard. One that can be found is asked, and one that has ended is no success.
    lookForEngine(ownServiceName());
  }
  if (!installationDeployer_) {
    if (!engine_ || (engine_->isRunning() && ipc::vendingUnder(ownServiceName()) == ipc::Vending::No)) {
      takeState(QVNInstallerStateSuccess);
    }
  } else if (const auto state = stateFrom(*installationDeployer_)) {
    takeState(*state);
  }
}

std::optional<QVNInstallerState> QVNExternalInstallationDeployerStrategy::stateFrom(QVNInstallationStatusProxy& proxy) {
  const auto state = proxy.answeredState();
  isAnswering_ = state.has_value();
  return state ? std::optional(static_cast<QVNInstallerState>(*state)) : std::nullopt;
}

void QVNExternalInstallationDeployerStrategy::takeState(QVNInstallerState state) {
  setInstallerState(state);
  if (isCompletionState(state)) {
    shutdownExternalEngine();
    runLoopShouldKeepRunning_ = false;
  }
}

void QVNExternalInstallationDeployerStrategy::shutdownExternalEngine() {
  logging::debug("Sending shutdownService to service: <QVNInstallationStatusProtocol>%@", serviceName());
  if (installationDeployer_) {
    installationDeployer_->shutdownService();
  }
}

std::string QVNExternalInstallationDeployerStrategy::ownServiceName() const {
  return statusServiceNameOfProcess(engine_ ? engine_->processIdentifier() : 0);
}

void QVNExternalInstallationDeployerStrategy::reach(const std::string& serviceName) {
  installationDeployer_ = QVNInstallationStatusProxy::ofService(serviceName);
  const foundation::MutexLock lock(lock_);
  installationDeployerServiceName_ = serviceName;
}

std::optional<std::string> QVNExternalInstallationDeployerStrategy::serviceName() const {
  const foundation::MutexLock lock(lock_);
  return installationDeployerServiceName_;
}

std::uint64_t QVNExternalInstallationDeployerStrategy::getProgress() {
  const auto name = serviceName();
  if (!name || !isAnswering_) {
    // One that has fallen silent holds up a watcher once, not every time; the run goes on asking it.
    return progressValue();
  }
  // A proxy of this thread's own: the other one is in use on the thread of the run.
  const auto proxy = QVNInstallationStatusProxy::ofService(*name);
  const auto progress = proxy->answeredProgress();
  isAnswering_ = progress.has_value();
  if (progress) {
    setProgressValue(static_cast<std::uint64_t>(std::clamp<std::int64_t>(*progress, 0, kCompleteProgress)));
  }
  return progressValue();
}

}  // namespace deployer
