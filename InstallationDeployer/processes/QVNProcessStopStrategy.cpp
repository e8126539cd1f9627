#include "InstallationDeployer/processes/QVNProcessStopStrategy.h"

#include <string>
#include <vector>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ExecutableEntry.h"
#include "InstallationDeployer/processes/LaunchdJob.h"
#include "InstallationDeployer/processes/QVNProcessStartStrategy.h"
#include "general/logging/SystemLog.h"
#include "general/system/RunningApplication.h"

namespace deployer {

using platform::RunningApplication;

namespace {

const std::string kUnload = "unload";
const std::string kRemove = "remove";

bool launchctl(const std::vector<std::string>& arguments) {
  return QVNProcessStartStrategy::launchTask(std::string(launchd::kLaunchctlPath), arguments);
}

/// Unloads a daemon, or takes its label from launchd where its description cannot be used.
void stopDaemon(const std::string& daemon) {
  const auto path = launchd::plistPath(kQVNLaunchDaemonsPath, daemon);
  if (!path || !launchctl({kUnload, *path})) {
    launchctl({kRemove, daemon});
  }
}

void stopAgent(const std::string& agent, const launchd::Session& session) {
  const auto path = launchd::plistPath(kQVNLaunchAgentsPath, agent);
  if (!path || !launchctl(launchd::argumentsInSession(session, {kUnload, *path}))) {
    launchctl(launchd::argumentsInSession(session, {kRemove, agent}));
  }
}

}  // namespace

bool QVNProcessStopStrategy::work() {
  if (!isLocal_ && !requireReceiptLocation()) {
    return false;
  }
  stopDaemonsFromPlan(plannedComponents());
  stopAgentsFromPlan(plannedComponents());
  stopExecutablesFromPlan(plannedComponents());
  return true;
}

bool QVNProcessStopStrategy::stopDaemonsFromPlan(const Plan& plan) {
  const auto daemons = manifest().listOfDaemonsForComponents(plan);
  if (daemons.empty()) {
    return true;
  }
  setInstallerState(QVNInstallerStateStoppingServices);
  for (const std::string& daemon : daemons) {
    stopDaemon(daemon);
  }
  return true;
}

bool QVNProcessStopStrategy::stopAgentsFromPlan(const Plan& plan) {
  const auto agents = manifest().listOfAgentsForComponents(plan);
  if (agents.empty()) {
    logging::debug("No launch agents to remove.");
    return true;
  }
  const auto session = launchd::sessionOfConsoleUser();
  if (!session) {
    setInstallerState(QVNInstallerStateSuccess);
    return true;
  }
  setInstallerState(QVNInstallerStateStoppingServices);
  for (const std::string& agent : agents) {
    logging::info("Removing agent %@ with uid: %d, loginWindowPID: %d", agent, session->userId,
                  session->loginWindowPID);
    stopAgent(agent, *session);
  }
  return true;
}

bool QVNProcessStopStrategy::stopExecutablesFromPlan(const Plan& plan) {
  const auto executables = manifest().listOfExecutablesForComponents(plan);
  if (!executables) {
    return true;
  }
  for (const PropertyList& element : *executables) {
    const ExecutableEntry executable(element);
    if (!executable.isApplication() || executable.runsOnce()) {
      continue;
    }
    for (const auto& application :
         RunningApplication::runningApplicationsWithBundleIdentifier(executable.bundleIdentifier())) {
      logging::info("Terminating application %@", application.localizedName());
      static_cast<void>(application.forceTerminate());
    }
  }
  return true;
}

}  // namespace deployer
