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

/// Posted when a receipt process can be reached; a service announcement.
inline constexpr std::string_view kQVNInstallationReceiptServiceStartedNotification =
    "com.corvane.installer.receipt.started";

/// Under what name a receipt process serves its installer.
[[nodiscard]] std::string receiptServiceNameOfProcess(int processIdentifier);

/// The operations of QVNInstallationReceiptProtocol as they are named on the wire.
namespace receipt_selectors {
inline constexpr std::string_view kComponentsAndVersions = "componentsAndVersions";
inline constexpr std::string_view kFixPlanForValidation = "fixPlanForValidation";
inline constexpr std::string_view kRemoveComponents = "removeComponents:";
inline constexpr std::string_view kShutdownService = "shutdownService";
}  // namespace receipt_selectors

extern const ipc::Protocol kQVNInstallationReceiptProtocol;

/// What an installer may ask of the installed product's receipt.
///
/// From another process, the results that stand here for "cannot tell" and "went wrong" may also mean that no answer
/// came, and true is believed only once QVNReceiptClient::lastReceiptProxyMessageSuccess() has vouched for it.
class QVNInstallationReceiptProtocol {
 public:
  virtual ~QVNInstallationReceiptProtocol() = default;
  /// The installed components with their versions; nil when the receipt cannot tell.
  [[nodiscard]] virtual foundation::PropertyList componentsAndVersions() = 0;
  /// Validates what is installed and names the components to repair; nothing when the receipt cannot tell.
  [[nodiscard]] virtual std::optional<std::vector<std::string>> fixPlanForValidation() = 0;
  /// Stops and removes the components. True when all went well.
  virtual bool removeComponents(const std::vector<std::string>& components) = 0;
  /// Ends the receipt process. Does not wait; nothing tells whether the wish arrived.
  virtual void shutdownService() = 0;
  /// For log lines.
  [[nodiscard]] virtual std::string description() const { return "<QVNInstallationReceiptProtocol>"; }
};

/// Hands remote requests to an object in this process; the object must outlive the target.
[[nodiscard]] ipc::Target targetFor(QVNInstallationReceiptProtocol& object);

/// The receipt service of another process. A call that was not answered raises nothing. Use from one thread at a time,
/// as the distant object inside.
class QVNInstallationReceiptProxy : public QVNInstallationReceiptProtocol {
 public:
  explicit QVNInstallationReceiptProxy(std::unique_ptr<ipc::CorvaneDistantObject> remote)
      : remote_(std::move(remote)) {}
  /// Of the service with this name, with further attempts after a failed call. Nobody is asked for anything yet.
  [[nodiscard]] static std::unique_ptr<QVNInstallationReceiptProxy> ofService(std::optional<std::string> serviceName);

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
