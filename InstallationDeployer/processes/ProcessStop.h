#pragma once

#include <string>
#include <vector>

#include "InstallationDeployer/processes/LaunchdJob.h"
#include "general/foundation/propertylist/PropertyList.h"

/// Stops what runs of a product. That something does not stop is no failure of whoever asked.
namespace deployer::process_stop {

/// Unloads a daemon, or takes its label from launchd where its description cannot be used.
void stopDaemon(const std::string& daemon);
/// The same for an agent in a user's session.
void stopAgent(const std::string& agent, const launchd::Session& session);
/// Ends the running applications among the executables of a manifest, except those that are to run once.
void terminateApplications(const foundation::PropertyList::Array& executables);

/// Everything that the manifests of some components name, each thing once.
void stopComponents(const std::vector<foundation::PropertyList>& manifests);

}  // namespace deployer::process_stop
