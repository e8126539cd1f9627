#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/run/QVNInstallController.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"

// How a bundle with several products finds the one to install: by what is already on the machine.
namespace deployer {

namespace paths = foundation::paths;
namespace files = foundation::files;

namespace {

constexpr std::string_view kProductIsDetectedSelector = "productIsDetectedFor:";
constexpr std::string_view kOneOfCollectionSelector = "oneOfCollectionExists:";

// A receipt whose index is missing still tells by its place whose it is.
std::optional<std::string> productOfReceiptAt(const std::string& bundlePath) {
  const std::string folder = paths::deleteLastComponent(bundlePath);
  return paths::deleteLastComponent(folder) == kQVNInstallerReceiptPath ? std::optional(paths::lastComponent(folder))
                                                                        : std::nullopt;
}

}  // namespace

std::optional<std::string> QVNInstallController::productNameFromDetection() {
  const PropertyList products = manifest().productsDictionary();
  if (products.entries().size() == 1) {
    return std::string(products.entries().front().key);
  }
  std::optional<std::string> detected;
  const PropertyList candidates = manifest().listOfProductDetectionDictionaries();
  for (const PropertyList& candidate : candidates.elements()) {
    const auto name = candidate[kManifestIndexProductName].string();
    // The "." makes the test true for folders only.
    if (name && (isPresent(paths::append(kQVNInstallerReceiptPath, *name) + "/.") || productIsDetectedFor(candidate))) {
      detected = std::string(*name);
      break;
    }
  }
  if (!detected && configuration_.remove() && manifest().manifestIndex().isNil() && !manifest().couldNotRead()) {
    detected = productOfReceiptAt(installerPath());
  }
  logging::debug("Product detected to install: %@", detected);
  return detected;
}

bool QVNInstallController::productIsDetectedFor(const PropertyList& dictionary) {
  const PropertyList& entries = dictionary[kManifestIndexProductDetectionPaths];
  if (!entries.isNil() && !entries.isArray()) {
    logging::error("Expected to find NSArray instance for %@. Found %@", kManifestIndexProductDetectionPaths, entries);
    return false;
  }
  for (const PropertyList& entry : entries.elements()) {
    if (entry.isString()) {
      if (!detectionPathExists(entry.text(), kProductIsDetectedSelector)) {
        return false;
      }
    } else if (entry.isArray()) {
      if (!oneOfCollectionExists(entry)) {
        return false;
      }
    } else {
      logging::error("Expected to find NSString or NSArray instance. Found %@ in detection array", entry);
      return false;
    }
  }
  return true;
}

bool QVNInstallController::oneOfCollectionExists(const PropertyList& detectionPaths) {
  for (const PropertyList& path : detectionPaths.elements()) {
    if (path.isString() && detectionPathExists(path.text(), kOneOfCollectionSelector)) {
      return true;
    }
  }
  return false;
}

bool QVNInstallController::detectionPathExists(std::string_view path, std::string_view selector) {
  const std::string resolved = paths::resolve(installerRootPath(), path);
  logging::debug("%s: checking detection path: %@", selector, resolved);
  return isPresent(resolved);
}

bool QVNInstallController::isPresent(const std::string& path) {
  const auto isThere = files::presence(path);
  if (!isThere) {
    // Whatever is concluded from a guess here would be wrong for one of the two machines.
    logging::error("Unable to look for %@. %@", path, isThere.error());
    setInstallerState(QVNInstallerStateFailed);
  }
  return isThere && *isThere;
}

bool QVNInstallController::productHasReceipt() { return isPresent(configuration_.receiptPath()); }

}  // namespace deployer
