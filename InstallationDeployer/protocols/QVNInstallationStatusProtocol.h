#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "general/ipc/CorvaneDistantObject.h"
#include "general/ipc/ProtocolChecker.h"

namespace deployer {

/// Name of a run's status service, with the engine's process id.
inline constexpr std::string_view kQVNInstallationStatusServiceNameFormat = "com.corvane.installer.%d";
/// Posted when a run's status service can be reached; its user info names the service.
inline constexpr std::string_view kQVNInstallationStatusServiceStartedNotification =
    "com.corvane.installer.deployer.started";
/// Posted on every later change of the run's state.
inline constexpr std::string_view kQVNInstallationStatusUpdatedNotification = "com.corvane.installer.update";
/// User-info key of the start notifications.
inline constexpr std::string_view kQVNInstallationStatusServiceName = "serviceName";

extern const ipc::Protocol kQVNInstallationStatusProtocol;

/// What a watcher may ask of a run.
class QVNInstallationStatusProtocol {
 public:
  virtual ~QVNInstallationStatusProtocol() = default;
  [[nodiscard]] virtual std::int32_t getCurrentState() = 0;
  [[nodiscard]] virtual std::int64_t getProgress() = 0;
  virtual void cancelInstallation() = 0;
  /// Lets the engine end.
  virtual void shutdownService() = 0;
  /// For log lines.
  [[nodiscard]] virtual std::string description() const { return "<QVNInstallationStatusProtocol>"; }
};

/// Hands remote requests to an object in this process; the object must outlive the target.
[[nodiscard]] ipc::Target targetFor(QVNInstallationStatusProtocol& object);

/// The status service of another process. Calls behave as those of the distant object: see there.
class QVNInstallationStatusProxy : public QVNInstallationStatusProtocol {
 public:
  explicit QVNInstallationStatusProxy(std::unique_ptr<ipc::CorvaneDistantObject> remote) : remote_(std::move(remote)) {}
  [[nodiscard]] std::int32_t getCurrentState() override;
  [[nodiscard]] std::int64_t getProgress() override;
  void cancelInstallation() override;
  void shutdownService() override;
  [[nodiscard]] std::string description() const override;
  [[nodiscard]] const ipc::CorvaneDistantObject& remote() const { return *remote_; }

 private:
  std::unique_ptr<ipc::CorvaneDistantObject> remote_;
};

}  // namespace deployer
