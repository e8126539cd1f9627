// manifest-queries: asks a bundle's manifests what an install asks, and installs nothing. How long it runs, as a
// process, is what an install spends on manifests.
//
//   manifest-queries BUNDLE PRODUCT

#include <exception>
#include <iostream>
#include <string>

#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/QVNInstallerManifest.h"
#include "general/logging/SystemLog.h"

namespace {

using deployer::QVNInstallerManifest;

std::size_t askWhatAnInstallAsks(const std::string& bundle, const std::string& product) {
  QVNInstallerManifest manifest(bundle);
  const auto components = manifest.filterComponents(
      manifest.componentListForProduct(product).value_or(QVNInstallerManifest::Names{}), product);
  std::size_t entries = 0;
  for (const std::string& component : components) {
    if (manifest.getManifestForComponent(component)[deployer::kManifestComponentSize].isNil()) {
      return 0;
    }
    const bool walked = manifest.walkManifestFileListForComponents(QVNInstallerManifest::Names{component}, false, true,
                                                                   [&](const auto&, const auto&, const auto& entry) {
                                                                     entries += entry.path() ? 1 : 0;
                                                                     return true;
                                                                   });
    if (!walked || !manifest.getManifestForComponent(component)[deployer::kManifestRebuildKextCache].isNil()) {
      return 0;
    }
  }
  const auto executables = manifest.listOfExecutablesForComponents(components);
  const auto daemons = manifest.listOfDaemonsForComponents(components);
  const auto agents = manifest.listOfAgentsForComponents(components);
  return executables && daemons.empty() && agents.empty() ? entries : 0;
}

}  // namespace

int main(int count, char** values) {
  if (count != 3) {
    std::cerr << "usage: manifest-queries BUNDLE PRODUCT\n";
    return 2;
  }
  try {
    const std::size_t entries = askWhatAnInstallAsks(values[1], values[2]);
    std::cout << entries << " entries\n";
    return entries == 0 ? 1 : 0;
  } catch (const std::exception& problem) {
    std::cerr << "manifest-queries: " << problem.what() << '\n';
    return 1;
  }
}
