#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "general/ipc/CorvaneDistantObject.h"
#include "general/ipc/ProtocolChecker.h"

namespace deployer {

/// Posted when a run's status service can be reached; a service announcement.
inline constexpr std::string_view kQVNInstallationStatusServiceStartedNotification =
    "com.corvane.installer.deployer.started";
/// Posted on every later change of the run's state.
inline constexpr std::string_view kQVNInstallationStatusUpdatedNotification = "com.corvane.installer.update";

/// Under what name the run of an engine can be watched.
[[nodiscard]] std::string statusServiceNameOfProcess(int processIdentifier);

/// The operations of QVNInstallationStatusProtocol as they are named on the wire.
namespace status_selectors {
inline constexpr std::string_view kGetCurrentState = "getCurrentState";
inline constexpr std::string_view kGetProgress = "getProgress";
inline constexpr std::string_view kCancelInstallation = "cancelInstallation";
inline constexpr std::string_view kShutdownService = "shutdownService";
}  // namespace status_selectors

extern const ipc::Protocol kQVNInstallationStatusProtocol;

/// What a watcher may ask of a run.
class QVNInstallationStatusProtocol {
 public:
  virtual ~QVNInstallationStatusProtocol() = default;
  /// The number of the run's state. From another process, 0 may also mean that no answer came, and 0 is success as
  /// well: who asks another process asks QVNInstallationStatusProxy::answeredState().
  [[nodiscard]] virtual std::int32_t getCurrentState() = 0;
  /// In percent of the run. From another process, 0 may also mean that no answer came.
  [[nodiscard]] virtual std::int64_t getProgress() = 0;
  /// Asks the run to stop after the step that is running. Does not wait; nothing tells whether the wish arrived.
  virtual void cancelInstallation() = 0;
  /// Says that the final state was seen, so that the engine may end. Does not wait either.
  virtual void shutdownService() = 0;
  /// For log lines.
  [[nodiscard]] virtual std::string description() const { return "<QVNInstallationStatusProtocol>"; }
};

/// Hands remote requests to an object in this process; the object must outlive the target.
[[nodiscard]] ipc::Target targetFor(QVNInstallationStatusProtocol& object);

/// The status service of another process. A call that was not answered raises nothing. Use from one thread at a time,
/// as the distant object inside.
class QVNInstallationStatusProxy : public QVNInstallationStatusProtocol {
 public:
  explicit QVNInstallationStatusProxy(std::unique_ptr<ipc::CorvaneDistantObject> remote) : remote_(std::move(remote)) {}
  /// Of the service with this name, without further attempts after a failed call. Nobody is asked for anything yet.
  [[nodiscard]] static std::unique_ptr<QVNInstallationStatusProxy> ofService(std::optional<std::string> serviceName);

  /// The number of the state that the service answered; nothing when no answer came.
  [[nodiscard]] std::optional<std::int32_t> answeredState();
  /// The progress that the service answered; nothing when no answer came.
  [[nodiscard]] std::optional<std::int64_t> answeredProgress();

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
