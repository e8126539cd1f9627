#pragma once

#include <string>

#include "InstallationDeployer/QVNInstallConfiguration.h"
#include "InstallationDeployer/QVNInstallerManifest.h"
#include "InstallationDeployer/QVNInstallerState.h"
#include "InstallationDeployer/steps/ChangeRecord.h"

namespace deployer {

/// The run as each of its steps sees it: what it may ask and what it may tell. QVNInstallController is the run; the
/// steps know no more of it than this.
///
/// Belongs to the main thread, which runs the steps, with two exceptions: setInstallerState() is also called from the
/// thread that serves watchers, while a receipt's states are mirrored into a step, and installationCancelled() changes
/// there.
class StepContext {
 public:
  virtual ~StepContext() = default;

  [[nodiscard]] virtual QVNInstallConfiguration& configuration() = 0;
  [[nodiscard]] virtual QVNInstallerManifest& manifest() = 0;
  /// Where a step says what it is going to change, before it does.
  [[nodiscard]] virtual ChangeRecord& changes() = 0;
  /// Publishes a state of the run.
  virtual void setInstallerState(QVNInstallerState state) = 0;
  /// Whether somebody asked for the run to stop after the step that is running.
  [[nodiscard]] virtual bool installationCancelled() const = 0;
  /// The bundle the engine runs from.
  [[nodiscard]] virtual std::string installerPath() const = 0;
  /// The payload of that bundle.
  [[nodiscard]] virtual std::string installerRootPath() const = 0;
};

}  // namespace deployer
