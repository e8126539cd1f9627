#include "InstallationDeployer/receipt/QVNReceiptServiceStrategy.h"

#include "general/logging/SystemLog.h"

namespace deployer {

namespace {

constexpr std::string_view kReceiptNotificationSuffix = ".receipt";

}  // namespace

std::string QVNReceiptServiceStrategy::receiptNotificationIdForBundlePath(std::string_view bundlePath) {
  return std::string(bundlePath) + std::string(kReceiptNotificationSuffix);
}

bool QVNReceiptServiceStrategy::execute(bool previousSuccess) {
  QVNInstallStepStrategy::execute(previousSuccess);
  if (!previousSuccess) {
    return false;
  }
  logging::error("The step \"%@\" (%@) is not available.", qualifiedName(), className());
  return failWith();
}

}  // namespace deployer
