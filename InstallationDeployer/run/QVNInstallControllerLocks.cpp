#include "InstallationDeployer/run/QVNInstallController.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"
#include "general/system/ProcessSelf.h"

// How a run has its product to itself.
namespace deployer {

namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

bool isMissing(const std::string& path) {
  const auto item = files::attributesOfTarget(path);
  return !item && item.error().isNoSuchFile();
}

}  // namespace

bool QVNInstallController::haveProductToOneself() {
  if (configuration_.receipt()) {
    return true;
  }
  const bool wasThere = !isMissing(installerPath());
  ProductNames products = productsToLock();
  while (lockProducts(products)) {
    // Nobody changes a bundle but the one that is a receipt.
    if (!productLocks_.hasWaited() && !configuration_.bundlePathIsReceipt()) {
      return true;
    }
    manifest_.reset();
    if (receiptIsGone(wasThere)) {
      setInstallerState(QVNInstallerStateSuccess);
      return false;
    }
    if (productLocks_.hasWaited()) {
      lookAgain();
    }
    ProductNames now = hasFailed() ? products : productsToLock();
    if (now == products) {
      return !hasFailed();
    }
    products = std::move(now);
  }
  return false;
}

bool QVNInstallController::receiptIsGone(bool wasThere) {
  if (!configuration_.remove() || configuration_.install() || !isMissing(installerPath()) ||
      (!wasThere && platform::self::executableIsInPlace())) {
    return false;
  }
  logging::notice(
      "The product \"%@\" was removed by another run. Nothing is left to remove.",
      configuration_.productName().value_or(paths::lastComponent(paths::deleteLastComponent(installerPath()))));
  return true;
}

bool QVNInstallController::lockProducts(const ProductNames& products) {
  switch (productLocks_.acquire(products, [this] { return installationCancelled(); })) {
    case ProductLocks::Outcome::Locked:
      return true;
    case ProductLocks::Outcome::Cancelled:
      setInstallerState(QVNInstallerStateCancelled);
      return false;
    case ProductLocks::Outcome::Failed:
      break;
  }
  setInstallerState(QVNInstallerStateFailed);
  return false;
}

ProductNames QVNInstallController::productsToLock() {
  return configuration_.install() ? productsChangedByInstallOf(productName(), manifest()) : ProductNames{productName()};
}

void QVNInstallController::lookAgain() {
  if (!productIsDetected_) {
    return;
  }
  const std::string before = productName();
  configuration_.setProductName(std::nullopt);
  chooseProduct();
  if (!hasFailed() && productName() != before) {
    logStartupMessage();
  }
}

}  // namespace deployer
