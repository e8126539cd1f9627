#include "InstallationDeployer/plans/QVNBuildRemovePlanStrategy.h"

#include "InstallationDeployer/ManifestKeys.h"
#include "general/logging/SystemLog.h"

namespace deployer {

bool QVNBuildRemovePlanStrategy::work() {
  if (!requireReceiptLocation()) {
    return false;
  }
  const PropertyList records = manifest().componentsAndVersionsForProduct(productName());
  if (!plan()) {
    if (installerState() != QVNInstallerStateSuccess) {
      logging::error("Unable to acquire removal plan");
      return false;
    }
    return true;
  }
  plan()->clear();
  for (const PropertyList& record : records.elements()) {
    logging::debug("componentNameAndVersion = %@", record);
    plan()->emplace_back(record[kManifestComponentName].text());
  }
  return true;
}

}  // namespace deployer
