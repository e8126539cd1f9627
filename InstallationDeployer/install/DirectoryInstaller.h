#pragma once

#include <optional>
#include <string>

#include "InstallationDeployer/InstallAction.h"
#include "InstallationDeployer/install/InstallResources.h"
#include "InstallationDeployer/install/PayloadPrefetch.h"

namespace deployer {

/// Makes the directories of one component, and fills those whose content comes from outside the payload. Works on the
/// thread that runs the steps; logs what fails.
class DirectoryInstaller {
 public:
  /// @param rules, resources, prefetch outlive this. The prefetch is given up when an entry runs short of what it
  /// holds.
  DirectoryInstaller(const InstallRules& rules, InstallResources& resources, std::optional<PayloadPrefetch>& prefetch)
      : rules_(rules), resources_(resources), prefetch_(prefetch) {}

  [[nodiscard]] bool install(const InstallAction& action);

 private:
  [[nodiscard]] bool refill(const InstallAction& action);
  [[nodiscard]] bool copyItems(const InstallAction& action, const std::string& path);

  const InstallRules& rules_;
  InstallResources& resources_;
  std::optional<PayloadPrefetch>& prefetch_;
};

}  // namespace deployer
