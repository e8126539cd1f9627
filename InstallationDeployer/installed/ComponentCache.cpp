#include "InstallationDeployer/installed/ComponentCache.h"

#include "InstallationDeployer/DefaultAttributes.h"
#include "InstallationDeployer/FileEntry.h"
#include "general/foundation/Paths.h"
#include "general/foundation/extensions/NSFileManagerExtensions.h"
#include "general/foundation/files/FileBuffer.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/GuardedFolder.h"
#include "general/foundation/files/TemporaryNames.h"
#include "general/foundation/files/TrustedFolder.h"

namespace deployer::component_cache {

namespace files = foundation::files;
namespace paths = foundation::paths;
namespace temporary_names = foundation::temporary_names;
using foundation::Error;
using foundation::FileAttributes;
using foundation::ItemStatus;
using foundation::Result;
using foundation::Status;

namespace {

std::string root() { return std::string(kQVNInstallerCacheRootPath); }

std::string folder() { return paths::deleteLastComponent(kQVNInstallerCacheRootPath); }

Error noPermission(std::string_view text, const std::string& path) {
  return foundation::NSFileManagerExtensions::errorWithMessage(text, path, foundation::kReadNoPermission);
}

bool belongsToRootAlone(const ItemStatus& attributes) {
  return attributes.isDirectory() && foundation::trusted_folder::isRootsAlone(attributes.owner, attributes.permissions);
}

/// The folder around the cache. A link of root is the system's own, and stands for what it leads to.
Result<ItemStatus> folderStatus() {
  auto item = files::attributesOfItem(folder());
  return item && item->isSymbolicLink() && item->owner == kRootUser ? files::attributesOfTarget(folder()) : item;
}

/// Nobody else may put anything in the cache's place once it is removed.
Status takeOverFolder() {
  const auto found = folderStatus();
  if (!found) {
    return found.error();
  }
  if (found->isSymbolicLink()) {
    return noPermission("The folder of the cache is a link that does not belong to root.", folder());
  }
  return belongsToRootAlone(*found) ? Status()
                                    : foundation::trusted_folder::takeOver(folder(), kDefaultDirectoryAttributes);
}

/// Renamed first, so that no name ever shows half of it.
Status removeInOneStep() {
  const std::string aside = temporary_names::make(folder());
  if (Status moved = files::moveItem(root(), aside); !moved) {
    return moved.error().isNoSuchFile() ? Status() : moved;
  }
  return files::removeItemIfPresent(aside);
}

/// The folder for a copy, which no link of somebody else may lead away from where it belongs.
Status makeParent(const std::string& target) {
  const std::string parent = paths::deleteLastComponent(target);
  if (Status made = files::createDirectory(parent, true, kDefaultDirectoryAttributes); !made) {
    return made;
  }
  const auto opened = foundation::openGuardedFolder(parent);
  return opened ? Status() : Status(opened.error());
}

/// A plain file is opened as such, so that nobody can put a link in its place meanwhile. The copy shows when its
/// content is on the disk: whoever finds an empty one in its place would take that for what the user made of it.
Status copyPlainFile(const std::string& source, const ItemStatus& attributes, const std::string& target) {
  foundation::FileBuffer buffer;
  const auto content = files::readItself(source, buffer);
  if (!content) {
    return content.error();
  }
  return files::writeDurably(*content, target,
                             FileAttributes{.owner = attributes.owner,
                                            .group = attributes.group,
                                            .permissions = attributes.permissions,
                                            .modificationNanoseconds = attributes.modificationNanoseconds});
}

}  // namespace

bool canHold(std::string_view path) { return isUsablePath(path) && paths::standardize(path) != "/"; }

std::string cachedPath(std::string_view path) { return paths::append(kQVNInstallerCacheRootPath, path); }

Result<bool> isTrustworthy() {
  const auto found = folderStatus();
  if (!found) {
    return found.error().isNoSuchFile() ? Result<bool>(true) : found.error();
  }
  return belongsToRootAlone(*found);
}

Status remove() {
  if (Status taken = takeOverFolder(); !taken) {
    return taken.error().isNoSuchFile() ? Status() : taken;
  }
  temporary_names::sweepWithContent(folder());
  return removeInOneStep();
}

Status makeFolder() {
  if (Status made = files::createDirectory(folder(), true, kDefaultDirectoryAttributes); !made) {
    return made;
  }
  const auto trusted = isTrustworthy();
  if (!trusted) {
    return trusted.error();
  }
  return *trusted ? Status() : noPermission("The cache's folder is not root's alone.", folder());
}

Status removeCopy(std::string_view path) { return files::removeItemIfPresent(cachedPath(path)); }

Result<std::vector<std::string>> cachedFiles() {
  const auto trusted = isTrustworthy();
  if (!trusted) {
    return trusted.error();
  }
  std::vector<std::string> found;
  std::vector<std::string> folders(*trusted ? 1 : 0, "/");
  while (!folders.empty()) {
    const std::string place = std::move(folders.back());
    folders.pop_back();
    const auto names = files::contentsOfDirectory(cachedPath(place));
    if (!names && !names.error().isNoSuchFile()) {
      return names.error();
    }
    for (const std::string& name : names ? *names : std::vector<std::string>()) {
      const std::string path = paths::append(place, name);
      const auto item = files::attributesOfItem(cachedPath(path));
      if (!item) {
        return item.error();
      }
      (item->isDirectory() ? folders : found).push_back(path);
    }
  }
  return found;
}

Status flush() {
  const Status flushed = files::flushFileSystem(folder());
  return flushed || flushed.error().isNoSuchFile() ? Status() : flushed;
}

Status copyFile(const std::string& source, const std::string& target) {
  const auto attributes = files::attributesOfItem(source);
  if (!attributes) {
    return attributes.error();
  }
  if (attributes->isSymbolicLink() && attributes->owner != kRootUser) {
    return noPermission("The file is a link that does not belong to root.", source);
  }
  if (Status made = makeParent(target); !made) {
    return made;
  }
  return attributes->isSymbolicLink() ? foundation::NSFileManagerExtensions::copyAndOverwriteItemAtPath(source, target)
                                      : copyPlainFile(source, *attributes, target);
}

}  // namespace deployer::component_cache
