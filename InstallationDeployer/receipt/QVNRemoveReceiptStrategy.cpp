#include "InstallationDeployer/receipt/QVNRemoveReceiptStrategy.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/FolderContents.h"
#include "InstallationDeployer/receipt/ReceiptLeftovers.h"
#include "InstallationDeployer/receipt/ReceiptLock.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/TemporaryNames.h"

namespace deployer {

using foundation::Result;
using foundation::Status;
namespace files = foundation::files;
namespace paths = foundation::paths;
namespace temporary_names = foundation::temporary_names;

namespace {

constexpr std::string_view kSystemVolume = "/";

Result<bool> holdsOtherReceipts(const std::string& receiptLocation, const std::string& own) {
  auto listing = files::contentsOfDirectory(receiptLocation);
  if (!listing) {
    return listing.error().isNoSuchFile() ? Result<bool>(false) : listing.error();
  }
  std::vector<std::string> names = std::move(listing).value();
  std::erase(names, own);
  // What is put aside is on its way out.
  std::erase_if(names, temporary_names::isTemporary);
  return !isAsGoodAsEmpty(names);
}

}  // namespace

bool QVNRemoveReceiptStrategy::work() {
  if (!requireReceiptLocation()) {
    return false;
  }
  if (manifest().couldNotRead()) {
    return fail("The receipt at %@ stays: what it lists could not be read.", configuration().receiptDirectory());
  }
  const auto lock = lockReceipts();
  if (!lock) {
    return failWith();
  }
  // A receipt goes once what it lists is gone for good, and the journal once the receipt is: no power cut may bring
  // files back that nobody knows of any more.
  if (!putOnDisk()) {
    return false;
  }
  if (const Status removed = removeReceipts(); !removed) {
    return fail("Unable to remove receipt at %@\n\terror: %@", configuration().receiptDirectory(), removed.error());
  }
  if (!putOnDisk()) {
    return false;
  }
  return controller().changes().finish() || failWith();
}

bool QVNRemoveReceiptStrategy::putOnDisk() {
  for (const std::string& folder : {std::string(kSystemVolume), paths::deleteLastComponent(kQVNInstallerReceiptPath)}) {
    if (const Status flushed = files::flushFileSystem(folder); !flushed && !flushed.error().isNoSuchFile()) {
      return fail("Failed to put on disk what was removed at %@. %@", folder, flushed.error());
    }
  }
  return true;
}

Status QVNRemoveReceiptStrategy::removeReceipts() {
  const std::string receiptLocation(kQVNInstallerReceiptPath);
  temporary_names::sweepWithContent(receiptLocation);
  // Looked at before anything goes: the receipts of others must not go because they could not be seen.
  const auto others = holdsOtherReceipts(receiptLocation, productName());
  if (!others) {
    return others.error();
  }
  if (Status removed = removeReceiptDirectory(); !removed) {
    return removed;
  }
  return *others ? Status() : files::removeItemIfPresent(receiptLocation);
}

Status QVNRemoveReceiptStrategy::removeReceiptDirectory() {
  const std::string aside = temporary_names::make(std::string(kQVNInstallerReceiptPath));
  if (Status moved = files::moveItem(configuration().receiptDirectory(), aside); !moved) {
    return moved.error().isNoSuchFile() ? Status() : moved;
  }
  return removePutAsideReceipt(aside);
}

}  // namespace deployer
