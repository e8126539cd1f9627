#include "InstallationDeployer/receipt/QVNRemoveReceiptStrategy.h"

#include <utility>
#include <vector>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/FolderContents.h"
#include "InstallationDeployer/receipt/ReceiptLock.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/TemporaryNames.h"

namespace deployer {

using foundation::Status;
namespace files = foundation::files;
namespace temporary_names = foundation::temporary_names;

namespace {

bool holdsOtherReceipts(const std::string& receiptLocation) {
  auto listing = files::contentsOfDirectory(receiptLocation);
  if (!listing) {
    return false;
  }
  // What is put aside is on its way out.
  std::vector<std::string> names = std::move(listing).value();
  std::erase_if(names, temporary_names::isTemporary);
  return !isAsGoodAsEmpty(names);
}

}  // namespace

bool QVNRemoveReceiptStrategy::work() {
  if (!requireReceiptLocation()) {
    return false;
  }
  const auto lock = lockReceipts();
  if (!lock) {
    return failWith();
  }
  if (const Status removed = removeReceipts(); !removed) {
    return fail("Unable to remove receipt at %@\n\terror: %@", configuration().receiptDirectory(), removed.error());
  }
  return controller().changes().finish() || failWith();
}

Status QVNRemoveReceiptStrategy::removeReceipts() {
  const std::string receiptLocation(kQVNInstallerReceiptPath);
  temporary_names::sweepWithContent(receiptLocation);
  if (Status removed = removeReceiptDirectory(); !removed) {
    return removed;
  }
  return holdsOtherReceipts(receiptLocation) ? Status() : files::removeItemIfPresent(receiptLocation);
}

Status QVNRemoveReceiptStrategy::removeReceiptDirectory() {
  const std::string aside = temporary_names::make(std::string(kQVNInstallerReceiptPath));
  if (Status moved = files::moveItem(configuration().receiptDirectory(), aside); !moved) {
    return moved.error().isNoSuchFile() ? Status() : moved;
  }
  return files::removeItemIfPresent(aside);
}

}  // namespace deployer
