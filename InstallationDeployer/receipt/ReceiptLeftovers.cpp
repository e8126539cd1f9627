#include "InstallationDeployer/receipt/ReceiptLeftovers.h"

#include "InstallationDeployer/BundleLayout.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/TemporaryNames.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::Status;

void sweepReceiptLeftovers() { foundation::temporary_names::sweepWithContent(std::string(kQVNInstallerReceiptPath)); }

Status removePutAsideReceipt(const std::string& aside) {
  Status removed = foundation::files::removeItemIfPresent(aside);
  if (!removed) {
    logging::error("What is left of the receipt lies at %@. %@", aside, removed.error());
  }
  return removed;
}

}  // namespace deployer
