#include "InstallationDeployer/processes/ProcessStop.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ExecutableEntry.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/processes/QVNProcessStartStrategy.h"
#include "general/logging/SystemLog.h"
#include "general/system/RunningApplication.h"

namespace deployer::process_stop {

using foundation::PropertyList;
using platform::RunningApplication;

namespace {

const std::string kUnload = "unload";
const std::string kRemove = "remove";

bool launchctl(const std::vector<std::string>& arguments) {
  return QVNProcessStartStrategy::launchTask(std::string(launchd::kLaunchctlPath), arguments);
}

std::vector<std::string> labelsIn(const std::vector<PropertyList>& manifests, std::string_view key) {
  std::vector<std::string> labels;
  for (const PropertyList& manifest : manifests) {
    for (std::string& label : manifest[key].strings()) {
      if (std::ranges::find(labels, label) == labels.end()) {
        labels.push_back(std::move(label));
      }
    }
  }
  return labels;
}

}  // namespace

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

void terminateApplications(const PropertyList::Array& executables) {
  for (const PropertyList& element : executables) {
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
}

void stopComponents(const std::vector<PropertyList>& manifests) {
  for (const std::string& daemon : labelsIn(manifests, kManifestListOfLaunchDaemons)) {
    stopDaemon(daemon);
  }
  const auto agents = labelsIn(manifests, kManifestListOfLaunchAgents);
  const auto session =
      agents.empty() ? std::nullopt
                     : launchd::sessionOf(QVNProcessStartStrategy::userId(), QVNProcessStartStrategy::loginWindowPID());
  if (session) {
    for (const std::string& agent : agents) {
      stopAgent(agent, *session);
    }
  }
  for (const PropertyList& manifest : manifests) {
    const auto executables = manifest[kManifestListOfExecutables].elements();
    terminateApplications({executables.begin(), executables.end()});
  }
}

}  // namespace deployer::process_stop
