#include "InstallationDeployer/processes/QVNProcessStopStrategy.h"

#include <string>
#include <vector>

#include "InstallationDeployer/processes/LaunchdJob.h"
#include "InstallationDeployer/processes/ProcessStop.h"
#include "InstallationDeployer/processes/QVNProcessStartStrategy.h"
#include "general/logging/SystemLog.h"

namespace deployer {

bool QVNProcessStopStrategy::work() {
  if (!isLocal_ && !requireReceiptLocation()) {
    return false;
  }
  if (!manifest().canRead(plannedComponents()) || !controller().changes().begin(plannedComponents())) {
    return failWith();
  }
  stopDaemonsFromPlan(plannedComponents());
  stopAgentsFromPlan(plannedComponents());
  stopExecutablesFromPlan(plannedComponents());
  controller().changes().note("stopped", plannedComponents());
  return requireReadManifests();
}

bool QVNProcessStopStrategy::stopDaemonsFromPlan(const Plan& plan) {
  const auto daemons = manifest().listOfDaemonsForComponents(plan);
  if (daemons.empty()) {
    return true;
  }
  setInstallerState(QVNInstallerStateStoppingServices);
  for (const std::string& daemon : daemons) {
    process_stop::stopDaemon(daemon);
  }
  return true;
}

bool QVNProcessStopStrategy::stopAgentsFromPlan(const Plan& plan) {
  const auto agents = manifest().listOfAgentsForComponents(plan);
  if (agents.empty()) {
    logging::debug("No launch agents to remove.");
    return true;
  }
  const auto session = launchd::sessionOf(QVNProcessStartStrategy::userId(), QVNProcessStartStrategy::loginWindowPID());
  if (!session) {
    setInstallerState(QVNInstallerStateSuccess);
    return true;
  }
  setInstallerState(QVNInstallerStateStoppingServices);
  for (const std::string& agent : agents) {
    logging::info("Removing agent %@ with uid: %d, loginWindowPID: %d", agent, session->userId,
                  session->loginWindowPID);
    process_stop::stopAgent(agent, *session);
  }
  return true;
}

bool QVNProcessStopStrategy::stopExecutablesFromPlan(const Plan& plan) {
  const auto executables = manifest().listOfExecutablesForComponents(plan);
  if (!executables) {
    return true;
  }
  process_stop::terminateApplications(*executables);
  return true;
}

}  // namespace deployer
