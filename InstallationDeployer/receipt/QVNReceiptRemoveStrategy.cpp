#include "InstallationDeployer/receipt/QVNReceiptRemoveStrategy.h"

#include "InstallationDeployer/receipt/QVNReceiptClient.h"
#include "general/foundation/Thread.h"
#include "general/logging/SystemLog.h"

namespace deployer {

bool QVNReceiptRemoveStrategy::work() {
  if (configuration().install() && !configuration().hasInstallerReceipt()) {
    return true;
  }
  if (!configuration().hasInstallerReceipt()) {
    setInstallerState(QVNInstallerStateFailed);
    logging::error("Failed to find receipt");
    return false;
  }
  QVNReceiptClient* client = receipts_.getReceiptClientForStrategy(*this);
  if (client == nullptr || client->receiptProxy() == nullptr || client->receiptStatusProxy() == nullptr) {
    setInstallerState(QVNInstallerStateFailed);
    logging::error("Failed to connect with receipt");
    return false;
  }
  client->startUpdatingCurrentStepStatusFromReceipt();
  const bool removed = client->receiptProxy()->removeComponents(plannedComponents());
  client->stopUpdatingCurrentStepStatusFromReceipt();
  if (!client->lastReceiptProxyMessageSuccess()) {
    return failWith();
  }
  return removed || failWithReceiptState(*client);
}

bool QVNReceiptRemoveStrategy::failWithReceiptState(QVNReceiptClient& client) {
  QVNInstallationStatusProtocol& statusProxy = *client.receiptStatusProxy();
  logging::debug("----- <%@>%s\n\tstatusProxy = %@\n\t[statusProxy getCurrentState]", foundation::currentThreadName(),
                 "execute:", statusProxy.description());
  setInstallerState(static_cast<QVNInstallerState>(statusProxy.getCurrentState()));
  const bool answered = client.lastReceiptStatusProxyMessageSuccess();
  if (answered && installerState() == QVNInstallerStateSuccess) {
    return false;
  }
  if (!answered) {
    // The state is none that the receipt gave, and must not pass for success.
    setInstallerState(QVNInstallerStateFailed);
  }
  logging::error("Unable to remove components");
  return false;
}

}  // namespace deployer
