#include "InstallationDeployer/receipt/QVNReceiptRemoveStrategy.h"

#include "general/logging/SystemLog.h"

namespace deployer {

bool QVNReceiptRemoveStrategy::execute(bool previousSuccess) {
  if (!QVNInstallStepStrategy::execute(previousSuccess)) {
    return false;
  }
  if (configuration().install() && !configuration().hasInstallerReceipt()) {
    return true;
  }
  if (!configuration().hasInstallerReceipt()) {
    setInstallerState(QVNInstallerStateFailed);
    logging::error("Failed to find receipt");
    return false;
  }
  // Removing without the receipt would leave nobody who knows what belongs to the installed product.
  setInstallerState(QVNInstallerStateFailed);
  logging::error("Failed to connect with receipt");
  return false;
}

}  // namespace deployer
