#include "InstallationDeployer/receipt/QVNInstallationReceiptService.h"

#include "InstallationDeployer/InternalInconsistency.h"
#include "InstallationDeployer/receipt/QVNReceiptServiceStrategy.h"
#include "general/ipc/RemoteException.h"
#include "general/ipc/VRKConnectionAuthenticator.h"

namespace deployer {

namespace {

constexpr std::string_view kInternalInconsistencyException = "NSInternalInconsistencyException";
/// Enough for the names of every component of a large product.
constexpr std::size_t kMaximumRequestSize = std::size_t{16} * 1024 * 1024;

/// A receipt whose manifests contradict themselves tells its client so, and lives on to be told to end.
ipc::Target withRemoteExceptions(ipc::Target target) {
  return [target = std::move(target)](std::string_view selector, std::span<const foundation::PropertyList> arguments) {
    try {
      return target(selector, arguments);
    } catch (const InternalInconsistency& inconsistency) {
      throw ipc::RemoteException(kInternalInconsistencyException, inconsistency.what());
    }
  };
}

}  // namespace

std::unique_ptr<QVNInstallationReceiptService> QVNInstallationReceiptService::serviceWithName(
    const std::string& name, QVNReceiptServiceStrategy& strategy) {
  std::unique_ptr<QVNInstallationReceiptService> service(new QVNInstallationReceiptService(strategy));
  return service->connection_.registerName(name) ? std::move(service) : nullptr;
}

QVNInstallationReceiptService::QVNInstallationReceiptService(QVNReceiptServiceStrategy& strategy)
    : receiptStrategy_(strategy),
      connection_({.peers = ipc::ServerConnection::Peers::RootOnly, .maximumRequestSize = kMaximumRequestSize}) {
  connection_.setDelegate(std::make_shared<ipc::VRKConnectionAuthenticator>());
  connection_.setRootObject(
      std::make_shared<ipc::ProtocolChecker>(withRemoteExceptions(targetFor(*this)), kQVNInstallationReceiptProtocol));
}

foundation::PropertyList QVNInstallationReceiptService::componentsAndVersions() {
  return receiptStrategy_.componentsAndVersions();
}

std::optional<std::vector<std::string>> QVNInstallationReceiptService::fixPlanForValidation() {
  return receiptStrategy_.fixPlanForValidation();
}

bool QVNInstallationReceiptService::removeComponents(const std::vector<std::string>& components) {
  return receiptStrategy_.removeComponents(components);
}

void QVNInstallationReceiptService::shutdownService() { receiptStrategy_.shutdownService(); }

}  // namespace deployer
