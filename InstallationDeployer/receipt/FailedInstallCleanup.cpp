#include "InstallationDeployer/receipt/FailedInstallCleanup.h"

#include "InstallationDeployer/BundleLayout.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"

namespace deployer {

void cleanupFailedInstall() {
  const std::string path = foundation::paths::append(kQVNInstallerReceiptPath, kQVNInstallerTemporaryName);
  if (!foundation::files::attributesOfItem(path)) {
    return;
  }
  if (const auto removed = foundation::files::removeItemIfPresent(path); !removed) {
    logging::error("Failed to remove temp directory %@. %@", path, removed.error());
  }
}

}  // namespace deployer
