#include "InstallationDeployer/receipt/FailedInstallCleanup.h"

#include "InstallationDeployer/BundleLayout.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"

namespace deployer {

void cleanupFailedInstall() {
  const std::string path = foundation::paths::append(kQVNInstallerReceiptPath, kQVNInstallerTemporaryName);
  const auto found = foundation::files::attributesOfItem(path);
  if (!found && found.error().meansNothingThere()) {
    return;
  }
  if (const auto removed = foundation::files::removeItemIfPresent(path); !removed) {
    logging::error("Failed to remove temp directory %@. %@", path, removed.error());
  }
}

}  // namespace deployer
