#pragma once

#include <cstdint>
#include <string>

#include "InstallationDeployer/QVNInstallerState.h"

namespace deployer {

/// The run as its status service sees it. Everything but postingNotificationId() is called from any thread.
class WatchedRun {
 public:
  virtual ~WatchedRun() = default;

  [[nodiscard]] virtual QVNInstallerState installerState() const = 0;
  virtual void setInstallerState(QVNInstallerState state) = 0;
  [[nodiscard]] virtual std::uint64_t getProgress() = 0;
  /// Asks the run to stop after the step that is running.
  virtual void cancelInstallation() = 0;
  /// The run's work is over; its state is final from then on.
  [[nodiscard]] virtual bool mainThreadComplete() const = 0;
  /// Names this run to those who watch several: the object of the notifications about it.
  [[nodiscard]] virtual std::string postingNotificationId() const = 0;
};

}  // namespace deployer
