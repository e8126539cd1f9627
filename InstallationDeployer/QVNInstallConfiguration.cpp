#include "InstallationDeployer/QVNInstallConfiguration.h"

#include "InstallationDeployer/BundleLayout.h"
#include "general/foundation/Paths.h"

namespace deployer {

bool QVNInstallConfiguration::isInstallMode() const {
  return install_ && !statusServer_ && !remove_ && !receipt_ && !planPath_;
}

bool QVNInstallConfiguration::isGUIInstallMode() const { return install_ && statusServer_ && !receipt_ && !planPath_; }

bool QVNInstallConfiguration::isRemoveMode() const {
  return remove_ && !statusServer_ && !install_ && !receipt_ && !planPath_;
}

bool QVNInstallConfiguration::isGUIRemoveMode() const {
  return remove_ && statusServer_ && !install_ && !receipt_ && !planPath_;
}

bool QVNInstallConfiguration::isReceiptMode() const { return receipt_ && !install_ && !remove_; }

bool QVNInstallConfiguration::isValid() const {
  return isInstallMode() || isGUIInstallMode() || isReceiptMode() || isGUIRemoveMode() || isRemoveMode();
}

std::string QVNInstallConfiguration::receiptDirectory() const {
  return foundation::paths::append(kQVNInstallerReceiptPath, productName_.value_or(""));
}

std::string QVNInstallConfiguration::receiptPath() const {
  return foundation::paths::append(receiptDirectory(), kQVNInstallerApplicationName);
}

}  // namespace deployer
