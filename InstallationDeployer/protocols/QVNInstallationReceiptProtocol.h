#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "general/foundation/propertylist/PropertyList.h"
#include "general/ipc/CorvaneDistantObject.h"
#include "general/ipc/ProtocolChecker.h"

namespace deployer {

/// Name of a receipt process's service, with its process id.
inline constexpr std::string_view kQVNInstallationReceiptServiceNameFormat = "com.corvane.installer.receipt.%d";
/// Posted when a receipt process can be reached; its user info names the service, under the same key as the status
/// service's.
inline constexpr std::string_view kQVNInstallationReceiptServiceStartedNotification =
    "com.corvane.installer.receipt.started";

extern const ipc::Protocol kQVNInstallationReceiptProtocol;

/// What an installer may ask of the installed product's receipt.
class QVNInstallationReceiptProtocol {
 public:
  virtual ~QVNInstallationReceiptProtocol() = default;
  /// The installed components with their versions; nil when the receipt cannot tell.
  [[nodiscard]] virtual foundation::PropertyList componentsAndVersions() = 0;
  /// Validates what is installed and names the components to repair; nothing when the receipt cannot tell.
  [[nodiscard]] virtual std::optional<std::vector<std::string>> fixPlanForValidation() = 0;
  /// Stops and removes the components. True when all went well.
  virtual bool removeComponents(const std::vector<std::string>& components) = 0;
  /// Ends the receipt process.
  virtual void shutdownService() = 0;
  /// For log lines.
  [[nodiscard]] virtual std::string description() const { return "<QVNInstallationReceiptProtocol>"; }
};

/// Hands remote requests to an object in this process; the object must outlive the target.
[[nodiscard]] ipc::Target targetFor(QVNInstallationReceiptProtocol& object);

/// The receipt service of another process. Calls behave as those of the distant object: see there.
class QVNInstallationReceiptProxy : public QVNInstallationReceiptProtocol {
 public:
  explicit QVNInstallationReceiptProxy(std::unique_ptr<ipc::CorvaneDistantObject> remote)
      : remote_(std::move(remote)) {}
  [[nodiscard]] foundation::PropertyList componentsAndVersions() override;
  [[nodiscard]] std::optional<std::vector<std::string>> fixPlanForValidation() override;
  bool removeComponents(const std::vector<std::string>& components) override;
  void shutdownService() override;
  [[nodiscard]] std::string description() const override;
  [[nodiscard]] const ipc::CorvaneDistantObject& remote() const { return *remote_; }

 private:
  std::unique_ptr<ipc::CorvaneDistantObject> remote_;
};

}  // namespace deployer
