#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "InstallationDeployer/ExecutableEntry.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Brings the installed components to life: executables, kernel-extension folder, launch daemons, launch agents.
/// Only an executable that fails, or a manifest that cannot be read, makes the step fail; everything else is logged and
/// passed over. Every child process is waited for before the next one starts.
class QVNProcessStartStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNProcessStartStrategy"; }

  /// The four parts of the step, each for the plan's components that belong to the product.
  [[nodiscard]] bool launchExecutablesFromPlan(const Plan& plan);
  [[nodiscard]] bool touchKextsFromPlan(const Plan& plan);
  [[nodiscard]] bool launchDaemonsFromPlan(const Plan& plan);
  [[nodiscard]] bool launchAgentsFromPlan(const Plan& plan);

  /// Runs a system command to its end. True when it ran and exited with 0. Logs the first 1000 bytes of its errors, in
  /// which bytes beyond ASCII are written as \xNN.
  [[nodiscard]] static bool launchTask(const std::string& launchPath, const std::vector<std::string>& withArguments);

  /// The user at the console and the process of that user's login window, each looked for anew. 0 when there is none,
  /// and when nobody can tell; nothing is logged.
  [[nodiscard]] static std::uint32_t userId();
  [[nodiscard]] static std::int32_t loginWindowPID();

 private:
  [[nodiscard]] bool work() override;
  [[nodiscard]] bool shouldRun(const ExecutableEntry& executable) const;
  [[nodiscard]] bool runExecutable(const ExecutableEntry& executable);
};

}  // namespace deployer
