#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Brings the installed components to life: executables, kernel-extension folder, launch daemons, launch agents.
class QVNProcessStartStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;

  bool execute(bool previousSuccess) override;
  [[nodiscard]] std::string_view className() const override { return "QVNProcessStartStrategy"; }

  /// Runs a system command to its end. True when it ran and exited with 0. Logs the first 1000 bytes of its errors.
  static bool launchTask(const std::string& launchPath, const std::vector<std::string>& withArguments);
};

}  // namespace deployer
