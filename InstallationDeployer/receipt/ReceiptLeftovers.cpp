#include "InstallationDeployer/receipt/ReceiptLeftovers.h"

#include "InstallationDeployer/BundleLayout.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/TemporaryNames.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::Result;
using foundation::Status;
namespace files = foundation::files;
namespace paths = foundation::paths;

void sweepReceiptLeftovers(const QVNInstallConfiguration& configuration) {
  foundation::temporary_names::sweepWithContent(std::string(kQVNInstallerReceiptPath));
  const std::string temporary = paths::append(configuration.receiptDirectory(), kQVNInstallerTemporaryName);
  const auto receipt = files::presence(configuration.receiptPath());
  const auto runsHere = liesDirectlyIn(temporary, configuration.bundlePath().value_or(""));
  // Without a receipt in its place, what lies here may be the only one.
  if (receipt && *receipt && runsHere && !*runsHere) {
    static_cast<void>(files::removeItemIfPresent(temporary));
  }
}

Result<bool> liesDirectlyIn(const std::string& folder, const std::string& item) {
  const auto expected = files::attributesOfTarget(folder);
  if (!expected) {
    return expected.error().meansNothingThere() ? Result<bool>(false) : expected.error();
  }
  const auto actual = files::attributesOfTarget(paths::append(item, ".."));
  if (!actual) {
    return actual.error().meansNothingThere() ? Result<bool>(false) : actual.error();
  }
  return expected->device == actual->device && expected->inode == actual->inode;
}

Status removePutAsideReceipt(const std::string& aside) {
  Status removed = files::removeItemIfPresent(aside);
  if (!removed) {
    logging::error("What is left of the receipt lies at %@. %@", aside, removed.error());
  }
  return removed;
}

}  // namespace deployer
