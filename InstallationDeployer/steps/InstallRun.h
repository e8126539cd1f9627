#pragma once

#include <memory>
#include <string>

#include "InstallationDeployer/QVNInstallConfiguration.h"
#include "InstallationDeployer/QVNInstallerManifest.h"
#include "InstallationDeployer/QVNInstallerState.h"
#include "general/foundation/execution/RunLoop.h"

namespace deployer {

class QVNInstallStepStrategy;
class QVNReceiptClient;

/// The run as its steps see it: what they may ask and what they may tell. QVNInstallController is the run; the steps
/// know no more of it than this. Used on the thread that runs the steps, but for the two flags, which any thread may
/// touch.
class InstallRun {
 public:
  virtual ~InstallRun() = default;

  [[nodiscard]] virtual QVNInstallConfiguration& configuration() = 0;
  [[nodiscard]] virtual QVNInstallerManifest& manifest() = 0;
  /// Publishes a state of the run.
  virtual void setInstallerState(QVNInstallerState state) = 0;
  [[nodiscard]] virtual bool installationCancelled() const = 0;
  /// The bundle the engine runs from.
  [[nodiscard]] virtual std::string installerPath() const = 0;
  /// The payload of that bundle.
  [[nodiscard]] virtual std::string installerRootPath() const = 0;
  /// The client of the installed product's receipt process, working for this step from now on; null when there is none.
  [[nodiscard]] virtual QVNReceiptClient* getReceiptClientForStrategy(QVNInstallStepStrategy& step) = 0;
  /// Names this run to those who watch several: the object of the notifications it posts.
  [[nodiscard]] virtual std::string postingNotificationId() const = 0;
  /// The run loop of the thread that serves watchers; null when the run has none.
  [[nodiscard]] virtual std::shared_ptr<foundation::RunLoop> statusServerThread() = 0;
  /// Ends the service for watchers, as a watcher would.
  virtual void shutdownStatusService() = 0;
};

}  // namespace deployer
