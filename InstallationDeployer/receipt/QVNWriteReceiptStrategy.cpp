#include "InstallationDeployer/receipt/QVNWriteReceiptStrategy.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/DefaultAttributes.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/receipt/FailedInstallCleanup.h"
#include "InstallationDeployer/receipt/ReceiptLeftovers.h"
#include "InstallationDeployer/receipt/ReceiptLock.h"
#include "general/foundation/Paths.h"
#include "general/foundation/Result.h"
#include "general/foundation/extensions/NSDictionaryExtensions.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/GuardedRemoval.h"
#include "general/foundation/files/TemporaryNames.h"
#include "general/foundation/files/TrustedFolder.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::Result;
using foundation::Status;
namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

constexpr std::array kExecutables = {kQVNInstallerFrontEndName, kQVNInstallationDeployerName};
/// Where everything lies that later runs need, below a bundle.
constexpr std::array kNeededFolders = {kQVNManifestDirectoryPath, kQVNPayloadRootPath, kQVNExecutablesPath};
/// Name below the temporary folder under which the receipt that is being replaced awaits its removal.
constexpr std::string_view kReplacedReceiptName = "Replaced.app";

/// A link that leads nowhere is there, too.
Result<bool> isPresent(const std::string& path) {
  const auto found = files::attributesOfItem(path);
  return found || found.error().isNoSuchFile() ? Result<bool>(found.ok()) : found.error();
}

/// Fails where something else has the name, a link included.
Status isFolderOrNothing(const std::string& path) {
  const auto found = files::attributesOfItem(path);
  if (!found) {
    return found.error().meansNothingThere() ? Status() : Status(found.error());
  }
  return found->isDirectory() ? Status() : Status(foundation::fileError(EEXIST, foundation::Access::Write, path));
}

}  // namespace

bool QVNWriteReceiptStrategy::execute(bool previousSuccess) {
  const bool success = QVNInstallStepStrategy::execute(previousSuccess);
  if (!previousSuccess) {
    cleanupFailedInstall();
  }
  return success && (controller().changes().finish() || failWith());
}

bool QVNWriteReceiptStrategy::work() {
  if (!requireReadManifests()) {
    return false;
  }
  if (plannedComponents().empty()) {
    return true;
  }
  const std::string bundlePath = configuration().bundlePath().value_or("");
  if (bundlePath == configuration().receiptPath()) {
    logging::debug("Receipt running as installer. WriteReceipt will not update the receipt.");
    return true;
  }
  const auto lock = lockReceipts();
  if (!lock) {
    return failWith();
  }
  if (!stageBundle(bundlePath)) {
    return false;
  }
  if (!validateContents()) {
    return isWhole_ || discardStagedReceipt();
  }
  return publishStagedReceipt();
}

std::string QVNWriteReceiptStrategy::temporaryPath() const {
  return paths::append(configuration().receiptDirectory(), kQVNInstallerTemporaryName);
}

std::string QVNWriteReceiptStrategy::stagingPath() const {
  return paths::append(temporaryPath(), kQVNInstallerApplicationName);
}

bool QVNWriteReceiptStrategy::stageBundle(const std::string& bundlePath) {
  if (!makeStagingFolder(bundlePath)) {
    return false;
  }
  // A file that could not be copied has been logged and has set the state. Whether later runs can do without it shows
  // when the contents are validated.
  copySourceDirectoryContents(bundlePath, stagingPath(), kReceiptFileAttributes, kDefaultDirectoryAttributes,
                              !carriesPayload());
  buffer_.shrinkTo(0);
  return makeExecutablesRunnable();
}

bool QVNWriteReceiptStrategy::makeStagingFolder(const std::string& bundlePath) {
  Status made = clearStagingFolder(bundlePath);
  if (made) {
    made = files::createDirectory(stagingPath(), true, kDefaultDirectoryAttributes);
  }
  return made.ok() || fail("Error creating receipt directory, error: %@", made.error());
}

Status QVNWriteReceiptStrategy::clearStagingFolder(const std::string& bundlePath) {
  if (Status free = isFolderOrNothing(temporaryPath()); !free) {
    return free;
  }
  if (const auto others = foundation::trusted_folder::firstOfSomebodyElse(temporaryPath())) {
    return foundation::fileError(EACCES, foundation::Access::Write, *others);
  }
  // A run that was killed may have left a part of another bundle here. A run that failed left a whole one, and when
  // that is what runs now, it is the only copy there is.
  const auto runsHere = liesDirectlyIn(temporaryPath(), bundlePath);
  if (!runsHere) {
    return runsHere.error();
  }
  // What else lies beside the staged receipt does not get into it and may stay.
  if (!*runsHere && files::removeItemIfPresent(temporaryPath())) {
    return {};
  }
  const auto isRunning = *runsHere ? isSameItem(stagingPath(), bundlePath) : Result<bool>(false);
  if (!isRunning) {
    return isRunning.error();
  }
  return *isRunning ? Status() : files::removeItemIfPresent(stagingPath());
}

bool QVNWriteReceiptStrategy::makeExecutablesRunnable() {
  for (const std::string_view name : kExecutables) {
    const std::string path = paths::append(paths::append(stagingPath(), kQVNExecutablesPath), name);
    if (const Status set = files::setAttributes(kReceiptExecutableAttributes, path); !set) {
      return fail("Receipt incomplete. Unable to set execute attributes on file: %@\n%@", path, set.error());
    }
  }
  return true;
}

bool QVNWriteReceiptStrategy::validateContents() {
  ReceiptComparison comparison(configuration().bundlePath().value_or(""), stagingPath());
  const bool holdsExecutables =
      comparison.isSame(std::string(kQVNInstallationDeployerPath)) &&
      comparison.isSameIfPresent(paths::append(kQVNExecutablesPath, kQVNInstallerFrontEndName)) &&
      comparison.holdsFolder(std::string(kQVNExecutablesPath));
  isWhole_ = holdsManifests(comparison) && holdsExecutables && holdsPayload(comparison) && holdsWhatWasCopied() &&
             requireReadManifests();
  return isWhole_ || failWith();
}

bool QVNWriteReceiptStrategy::holdsManifests(ReceiptComparison& comparison) {
  const std::string folder(kQVNManifestDirectoryPath);
  bool holdsAll = comparison.isSame(paths::append(folder, kQVNManifestIndexName));
  for (const std::string& component : componentsOfLaterRuns()) {
    const std::string name = paths::appendExtension(component, kQVNManifestExtension);
    holdsAll = comparison.isSameIfPresent(paths::append(folder, name)) && holdsAll;
  }
  return holdsAll && comparison.holdsFolder(folder);
}

bool QVNWriteReceiptStrategy::holdsWhatWasCopied() {
  // What lies elsewhere in the bundle is nothing that a later run needs.
  const auto isNeeded = [](const std::string& path) {
    return std::ranges::any_of(kNeededFolders, [&](std::string_view folder) {
      return path == folder || path.starts_with(std::string(folder) + "/");
    });
  };
  const auto failed = std::ranges::find_if(failedCopies_, isNeeded);
  return failed == failedCopies_.end() ||
         fail("Receipt incomplete. It does not hold the bundle's %@: it could not be copied.", *failed);
}

bool QVNWriteReceiptStrategy::holdsPayload(const ReceiptComparison& comparison) {
  const std::string folder(kQVNPayloadRootPath);
  return carriesPayload() ? comparison.holdsFolder(folder) : comparison.holdsFolderItself(folder);
}

Plan QVNWriteReceiptStrategy::componentsOfLaterRuns() {
  Plan components;
  const auto add = [&components](const PropertyList& names) {
    for (std::string& name : names.strings()) {
      if (paths::isSingleComponent(name)) {
        components.push_back(std::move(name));
      }
    }
  };
  const PropertyList phases = manifest().arrayOfInstallPhasesForProduct(productName());
  for (const PropertyList& phase : phases.elements()) {
    add(phase[kManifestIndexListOfComponents]);
  }
  add(manifest().manifestIndex()[kManifestIndexProductCleanup][kManifestIndexListOfComponents]);
  return components;
}

bool QVNWriteReceiptStrategy::carriesPayload() {
  return foundation::NSDictionaryExtensions::boolForKey(manifest().manifestIndex(),
                                                        kManifestIndexReceiptHasPayloadContents);
}

bool QVNWriteReceiptStrategy::discardStagedReceipt() {
  // What lies there may be the bundle that runs, and the only copy of it.
  const auto runsHere = liesDirectlyIn(temporaryPath(), configuration().bundlePath().value_or(""));
  if (runsHere && !*runsHere) {
    removeTemporaryFolder();
    // A folder without a receipt would pass for an installed product.
    static_cast<void>(foundation::GuardedRemoval().removeDirectory(configuration().receiptDirectory(), {}));
  }
  return failWith();
}

bool QVNWriteReceiptStrategy::publishStagedReceipt() {
  // First the data, then the name: a receipt must not outlive a power cut that takes what it vouches for.
  if (!putOnDisk() || !removeExistingReceipt() || !moveReceiptIntoPlace()) {
    return false;
  }
  removeTemporaryFolder();
  foundation::temporary_names::sweepWithContent(std::string(kQVNInstallerReceiptPath));
  return putOnDisk();
}

bool QVNWriteReceiptStrategy::removeExistingReceipt() {
  const std::string existing = configuration().receiptPath();
  const auto isThere = isPresent(existing);
  Status removed = isThere ? Status() : Status(isThere.error());
  if (removed && *isThere) {
    // The two change places in one step, so that a killed run leaves a receipt: without one, the next run would take
    // what is installed for a fresh machine's. Where that cannot be done the old one goes out of the way, also in one
    // step, to where it is not swept, for it is the only one then.
    const bool exchanged = files::exchangeItems(stagingPath(), existing).ok();
    const std::string aside = exchanged ? foundation::temporary_names::make(std::string(kQVNInstallerReceiptPath))
                                        : paths::append(temporaryPath(), kReplacedReceiptName);
    removed = files::moveItem(exchanged ? stagingPath() : existing, aside);
    if (removed) {
      removed = removePutAsideReceipt(aside);
    }
  }
  return removed.ok() || fail("Failed to remove existing receipt %@. %@", existing, removed.error());
}

bool QVNWriteReceiptStrategy::moveReceiptIntoPlace() {
  const auto isStaged = isPresent(stagingPath());
  Status moved = isStaged ? Status() : Status(isStaged.error());
  if (moved && *isStaged) {
    moved = files::moveItem(stagingPath(), configuration().receiptPath());
  }
  return moved.ok() || fail("Failed to move receipt to %@. %@", configuration().receiptPath(), moved.error());
}

void QVNWriteReceiptStrategy::removeTemporaryFolder() {
  if (const Status removed = files::removeItemIfPresent(temporaryPath()); !removed) {
    logging::error("Failed to remove temp directory %@. %@", stagingPath(), removed.error());
  }
}

bool QVNWriteReceiptStrategy::putOnDisk() {
  const std::string folder = configuration().receiptDirectory();
  if (const Status flushed = files::flushFileSystem(folder); !flushed) {
    return fail("Failed to put what was written on disk at %@. %@", folder, flushed.error());
  }
  return true;
}

bool QVNWriteReceiptStrategy::copySourceDirectoryContents(const std::string& source, const std::string& to,
                                                          const FileAttributes& fileAttributes,
                                                          const FileAttributes& directoryAttributes,
                                                          bool excludePayloadContents) {
  // The walk's paths begin with the root as it is written without trailing slashes.
  const std::string root = paths::append(source, "");
  const std::string excludedPath(excludePayloadContents ? kQVNPayloadRootPath : "");
  return manifest().walkDirectory(root, "", excludedPath, [&](const std::string& path, bool isDirectory) {
    const std::string relativePath = path.substr(root.size());
    const bool copied = copyFile(relativePath, root, to, fileAttributes, directoryAttributes, isDirectory);
    if (!copied) {
      failedCopies_.push_back(relativePath.substr(1));
    }
    return copied;
  });
}

bool QVNWriteReceiptStrategy::copyFile(const std::string& relativePath, const std::string& source,
                                       const std::string& destination, const FileAttributes& fileAttributes,
                                       const FileAttributes& directoryAttributes, bool isDirectory) {
  const std::string sourcePath = paths::append(source, relativePath);
  const std::string destinationPath = paths::append(destination, relativePath);
  if (isDirectory) {
    const Status created = files::createDirectory(destinationPath, true, directoryAttributes);
    return created || fail("error creating directory: %@ (%@)", created.error(), destinationPath);
  }
  const auto content = files::read(sourcePath, buffer_);
  if (!content) {
    return fail("error: %@ (%@)", content.error(), sourcePath);
  }
  if (const Status written = files::writeAtomically(*content, destinationPath); !written) {
    return fail("error writing: %@ (%@)", written.error(), destinationPath);
  }
  if (const Status set = files::setAttributes(fileAttributes, destinationPath); !set) {
    return fail("Unable to set attributes on file: %@\n%@", destinationPath, set.error());
  }
  return true;
}

}  // namespace deployer
