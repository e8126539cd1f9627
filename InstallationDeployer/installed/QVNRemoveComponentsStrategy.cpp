#include "InstallationDeployer/installed/QVNRemoveComponentsStrategy.h"

#include "InstallationDeployer/FolderContents.h"
#include "InstallationDeployer/RestrictedPaths.h"
#include "general/foundation/Result.h"
#include "general/foundation/files/GuardedRemoval.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::FileType;
using foundation::GuardedRemoval;
using foundation::Result;

namespace {

bool stays(const std::string& directory) {
  logging::debug("Did not remove directory, not empty. Directory: %@", directory);
  return true;
}

/// A link goes, whatever lies where it leads.
Result<bool> itselfRemoved(const std::string& link, GuardedRemoval& removal) {
  const auto removed = removal.removeFile(link);
  return removed ? Result(true) : removed.error();
}

}  // namespace

bool QVNRemoveComponentsStrategy::work() {
  if (!isLocal_ && !requireReceiptLocation()) {
    return false;
  }
  if (!controller().changes().begin(plannedComponents())) {
    return failWith();
  }
  setInstallerState(QVNInstallerStateRemoving);
  GuardedRemoval removal;
  const bool removed = walkPlannedEntries(
      [&](const std::string& component, const FileEntry& entry) { return removeEntry(component, entry, removal); });
  if (removed) {
    controller().changes().note("removed", plannedComponents());
  }
  return removed;
}

bool QVNRemoveComponentsStrategy::removeEntry(const std::string& component, const FileEntry& entry,
                                              GuardedRemoval& removal) {
  const auto listedPath = entry.path();
  if (listedPath && isRestricted(*listedPath)) {
    return fail("Attempted to remove path on restricted list. Path: %@", listedPath);
  }
  const auto path = entry.installedPath();
  if (!path) {
    return fail("A file of component %@ has no usable path: %@", component, listedPath);
  }
  if (entry.isDirectory()) {
    return entry.removesContents() ? removeWithContents(*path, removal) : removeUnlessInUse(*path, removal);
  }
  return isKept(entry) || removeFile(*path, removal);
}

bool QVNRemoveComponentsStrategy::removeWithContents(const std::string& path, GuardedRemoval& removal) {
  const auto removed = removal.removeItem(path);
  return removed || removed.error().isNoSuchFile() || fail("Unable to remove directory. %@", removed.error());
}

bool QVNRemoveComponentsStrategy::removeUnlessInUse(const std::string& path, GuardedRemoval& removal) {
  const auto type = removal.typeOf(path);
  if (!type) {
    return fail("Unable to read directory contents. %@", type.error());
  }
  const auto names = removal.contentsOfDirectory(path);
  if (!names) {
    return names.error().isNoSuchFile() || fail("Unable to read directory contents. %@", names.error());
  }
  if (!isAsGoodAsEmpty(*names)) {
    return stays(path);
  }
  const auto removed =
      *type == FileType::SymbolicLink ? itselfRemoved(path, removal) : removal.removeDirectory(path, *names);
  if (!removed) {
    return removed.error().isNoSuchFile() || fail("Unable to remove directory. %@", removed.error());
  }
  return *removed || stays(path);
}

bool QVNRemoveComponentsStrategy::removeFile(const std::string& path, GuardedRemoval& removal) {
  const auto removed = removal.removeFile(path);
  if (removed || removed.error().isNoSuchFile()) {
    return true;
  }
  // Whoever made a directory in the file's place may have put something there that nobody listed.
  const auto type = removal.typeOf(path);
  if (type && *type == FileType::Directory) {
    return removeUnlessInUse(path, removal);
  }
  return fail("Unable to remove file. %@", removed.error());
}

bool QVNRemoveComponentsStrategy::isKept(const FileEntry& entry) const {
  if (!entry.isModifiable()) {
    return false;
  }
  const bool removesEverything = configuration().remove();
  logging::debug("itemPath = %@\n\tself.configuration.remove = %d", entry.listedPath(), removesEverything);
  return !removesEverything;
}

}  // namespace deployer
