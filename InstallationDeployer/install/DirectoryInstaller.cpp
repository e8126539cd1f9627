#include "InstallationDeployer/install/DirectoryInstaller.h"

#include <string_view>
#include <vector>

#include "InstallationDeployer/DefaultAttributes.h"
#include "InstallationDeployer/install/LogFailure.h"
#include "general/foundation/Paths.h"
#include "general/foundation/Result.h"
#include "general/foundation/extensions/NSFileManagerExtensions.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/GuardedReading.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::FileAttributes;
using foundation::Status;
namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

constexpr std::string_view kCopyFileSelector = "copyFileWithManifestInfo:forComponent:source:destination:attributes:";

// The folder itself shows with its own attributes at once; only folders that no entry describes get the defaults.
Status makeDirectory(const std::string& path, const FileAttributes& own, const FileAttributes& parents) {
  const std::string parent = paths::deleteLastComponent(path);
  if (!parent.empty()) {
    if (auto made = files::createDirectory(parent, true, parents); !made) {
      return made;
    }
  }
  auto made = files::createDirectory(path, true, withDefaults(own, parents));
  // Attributes that cannot be given are reported when they are set, not as a folder that cannot be made.
  return made ? made : files::createDirectory(path, true, parents);
}

Status copyItem(const std::string& from, const std::string& to, bool isOutside) {
  namespace extensions = foundation::NSFileManagerExtensions;
  return isOutside ? extensions::copyAndOverwriteGuardedItemAtPath(from, to)
                   : extensions::copyAndOverwriteItemAtPath(from, to);
}

bool setAttributes(const InstallAction& action) {
  const auto set = files::setAttributes(action.entry.attributes(), action.destination);
  return set.ok() || logFailure("Unable to set attributes on directory: %@\n%@", action.destination, set.error());
}

}  // namespace

bool DirectoryInstaller::install(const InstallAction& action) {
  const std::string& path = action.destination;
  logging::debug("%s: filePath = %@", kCopyFileSelector, path);
  const auto made = withSpareResources(
      prefetch_, [&] { return makeDirectory(path, action.entry.attributes(), rules_.directoryAttributes); });
  if (!made) {
    return logFailure("error: %@", made.error());
  }
  resources_.writtenVolumes().note(path);
  return setAttributes(action) && (action.kind == InstallAction::Kind::Directory || refill(action));
}

bool DirectoryInstaller::refill(const InstallAction& action) {
  const std::string& path = action.destination;
  logging::debug("%s: externalFilePath = %@", kCopyFileSelector, action.source);
  if (auto removed = files::removeItemIfPresent(path); !removed) {
    return logFailure("Unable to delete directory: %@\n%@", path, removed.error());
  }
  if (auto made = makeDirectory(path, action.entry.attributes(), rules_.directoryAttributes); !made) {
    return logFailure("Unable to create directory: %@\n%@", path, made.error());
  }
  return copyItems(action, path) && setAttributes(action);
}

bool DirectoryInstaller::copyItems(const InstallAction& action, const std::string& path) {
  const std::string& from = action.source;
  const auto listing = action.isOutside ? files::contentsOfGuardedDirectory(from) : files::contentsOfDirectory(from);
  if (!listing && !listing.error().isNoSuchFile()) {
    return logFailure("Unable to access to external directory.\n%@", listing.error());
  }
  const std::vector<std::string> items = listing ? *listing : std::vector<std::string>();
  logging::debug("%s: itemsToCopy.count = %lu", kCopyFileSelector, items.size());
  for (const std::string& item : items) {
    const std::string copy = paths::append(path, item);
    const auto copied = copyItem(paths::append(from, item), copy, action.isOutside);
    if (!copied) {
      return logFailure("Unable to copy external file.\n%@", copied.error());
    }
    resources_.writtenVolumes().note(copy);
  }
  logging::info("Copied %ld external files to %@.", items.size(), path);
  return true;
}

}  // namespace deployer
