#include "InstallationDeployer/QVNInstallerPlan.h"

namespace deployer {

// None of the three loads anything: a plan is filled by whoever computes it.
QVNInstallerPlan QVNInstallerPlan::initInstallPlanWithPath(const std::string& /*path*/,
                                                           const std::string& /*receiptPath*/) {
  return {};
}

QVNInstallerPlan QVNInstallerPlan::initFixPlanWithPath(const std::string& /*path*/, const std::string& /*targetPath*/) {
  return {};
}

QVNInstallerPlan QVNInstallerPlan::initRemovalPlanWithPath(const std::string& /*path*/,
                                                           const std::string& /*targetPath*/) {
  return {};
}

}  // namespace deployer
