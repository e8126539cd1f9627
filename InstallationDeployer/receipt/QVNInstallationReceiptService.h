#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "InstallationDeployer/protocols/QVNInstallationReceiptProtocol.h"
#include "general/ipc/ServerConnection.h"

namespace deployer {

class QVNReceiptServiceStrategy;

/// The object that a receipt process vends: hands the requests of root's installers to the step that serves them.
/// Belongs to the thread of that step.
class QVNInstallationReceiptService : private QVNInstallationReceiptProtocol {
 public:
  /// Null when the name cannot be had.
  /// @param strategy outlives the service.
  [[nodiscard]] static std::unique_ptr<QVNInstallationReceiptService> serviceWithName(
      const std::string& name, QVNReceiptServiceStrategy& strategy);

  /// Whether installers have waited in vain for a while because the process has no descriptor for one more.
  [[nodiscard]] bool isStarved() const { return connection_.isStarved(); }

 private:
  explicit QVNInstallationReceiptService(QVNReceiptServiceStrategy& strategy);

  [[nodiscard]] foundation::PropertyList componentsAndVersions() override;
  [[nodiscard]] std::optional<std::vector<std::string>> fixPlanForValidation() override;
  bool removeComponents(const std::vector<std::string>& components) override;
  void shutdownService() override;

  QVNReceiptServiceStrategy& receiptStrategy_;
  ipc::ServerConnection connection_;
};

}  // namespace deployer
