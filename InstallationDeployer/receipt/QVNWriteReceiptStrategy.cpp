#include "InstallationDeployer/receipt/QVNWriteReceiptStrategy.h"

#include <array>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/DefaultAttributes.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/receipt/FailedInstallCleanup.h"
#include "InstallationDeployer/receipt/ReceiptLock.h"
#include "general/foundation/Paths.h"
#include "general/foundation/Result.h"
#include "general/foundation/extensions/NSDictionaryExtensions.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/TemporaryNames.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::Status;
namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

constexpr std::array kExecutables = {kQVNInstallerFrontEndName, kQVNInstallationDeployerName};
/// Name below the temporary folder under which the receipt that is being replaced awaits its removal.
constexpr std::string_view kReplacedReceiptName = "Replaced.app";

/// Compares the folders themselves: a path may be relative or lead through links.
bool liesDirectlyIn(const std::string& folder, const std::string& item) {
  const auto expected = files::attributesOfTarget(folder);
  const auto actual = files::attributesOfTarget(paths::append(item, ".."));
  return expected && actual && expected->device == actual->device && expected->inode == actual->inode;
}

bool isPresent(const std::string& path) { return files::attributesOfItem(path).ok(); }

}  // namespace

bool QVNWriteReceiptStrategy::execute(bool previousSuccess) {
  const bool success = QVNInstallStepStrategy::execute(previousSuccess);
  if (!previousSuccess) {
    cleanupFailedInstall();
  }
  return success && (controller().changes().finish() || failWith());
}

bool QVNWriteReceiptStrategy::work() {
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
  return !validateContents() || publishStagedReceipt();
}

std::string QVNWriteReceiptStrategy::temporaryPath() const {
  return paths::append(configuration().receiptDirectory(), kQVNInstallerTemporaryName);
}

std::string QVNWriteReceiptStrategy::stagingPath() const {
  return paths::append(temporaryPath(), kQVNInstallerApplicationName);
}

bool QVNWriteReceiptStrategy::stageBundle(const std::string& bundlePath) {
  const bool hasPayload = foundation::NSDictionaryExtensions::boolForKey(manifest().manifestIndex(),
                                                                         kManifestIndexReceiptHasPayloadContents);
  if (!makeStagingFolder(bundlePath)) {
    return false;
  }
  // A file that could not be copied has been logged and has set the state; a receipt with a gap still serves better
  // than none.
  copySourceDirectoryContents(bundlePath, stagingPath(), kReceiptFileAttributes, kDefaultDirectoryAttributes,
                              !hasPayload);
  buffer_.shrinkTo(0);
  return makeExecutablesRunnable();
}

bool QVNWriteReceiptStrategy::makeStagingFolder(const std::string& bundlePath) {
  // A run that was killed may have left a part of another bundle here. A run that failed left a whole one, and when
  // that is what runs now, it is the only copy there is.
  Status made = liesDirectlyIn(temporaryPath(), bundlePath) ? Status() : files::removeItemIfPresent(temporaryPath());
  if (made) {
    made = files::createDirectory(stagingPath(), true, kDefaultDirectoryAttributes);
  }
  if (!made) {
    return fail("Error creating receipt directory, error: %@", made.error());
  }
  return true;
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
  if (!isPresent(configuration().receiptPath())) {
    return true;
  }
  // The two change places in one step, so that a killed run leaves a receipt: without one, the next run would take what
  // is installed for a fresh machine's. Where that cannot be done the old one goes out of the way, also in one step.
  const bool exchanged = files::exchangeItems(stagingPath(), configuration().receiptPath()).ok();
  const std::string replaced = exchanged ? stagingPath() : paths::append(temporaryPath(), kReplacedReceiptName);
  Status removed = exchanged ? Status() : files::moveItem(configuration().receiptPath(), replaced);
  if (removed) {
    removed = files::removeItem(replaced);
  }
  if (!removed) {
    return fail("Failed to remove existing receipt %@. %@", configuration().receiptPath(), removed.error());
  }
  return true;
}

bool QVNWriteReceiptStrategy::moveReceiptIntoPlace() {
  if (!isPresent(stagingPath())) {
    return true;
  }
  if (const Status moved = files::moveItem(stagingPath(), configuration().receiptPath()); !moved) {
    return fail("Failed to move receipt to %@. %@", configuration().receiptPath(), moved.error());
  }
  return true;
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
    return copyFile(path.substr(root.size()), root, to, fileAttributes, directoryAttributes, isDirectory);
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
