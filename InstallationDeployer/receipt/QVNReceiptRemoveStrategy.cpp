#include "InstallationDeployer/receipt/QVNReceiptRemoveStrategy.h"

#include "InstallationDeployer/receipt/ReceiptConversation.h"
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
  if (!controller().changes().begin(plannedComponents())) {
    return failWith();
  }
  auto receipt = ReceiptConversation::begin(*this, receipts_);
  if (!receipt) {
    return false;
  }
  const auto removed = receipt->removeComponents(plannedComponents());
  if (removed && !*removed) {
    // Without success either way; only what is said about it differs.
    static_cast<void>(receipt->takeOverState("Unable to remove components"));
  }
  if (removed.value_or(false)) {
    controller().changes().note("removed", plannedComponents());
  }
  return removed.value_or(false);
}

}  // namespace deployer
