#include "InstallationDeployer/installed/QVNRestoreCacheComponentStrategy.h"

#include <algorithm>

#include "InstallationDeployer/installed/ComponentCache.h"
#include "InstallationDeployer/installed/QVNCacheComponentStrategy.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/GuardedRemoval.h"
#include "general/logging/SystemLog.h"

namespace deployer {

namespace files = foundation::files;
namespace paths = foundation::paths;
using foundation::Status;

namespace {

bool isMissing(const std::string& folder) {
  const auto isThere = files::presence(folder);
  return isThere && !*isThere;
}

}  // namespace

bool QVNRestoreCacheComponentStrategy::work() {
  // What could not be put back stays in the cache for the next run.
  if (!restoreFiles() || !restoreOwedFiles() || !flushRestored()) {
    return false;
  }
  const auto alone = controller().changes().lockCache();
  if (alone == nullptr) {
    return failWith();
  }
  if (const Status removed = removeCache(); !removed && !removed.error().isNoSuchFile()) {
    return fail("QVNRestoreCacheComponentStrategy: Unable to cleanup temp file cache. %@", removed.error());
  }
  controller().changes().note("restored", controller().changes().owedFiles());
  return true;
}

bool QVNRestoreCacheComponentStrategy::restoreOwedFiles() {
  return std::ranges::all_of(controller().changes().owedFiles(),
                             [this](const std::string& path) { return restored_.contains(path) || restoreFile(path); });
}

bool QVNRestoreCacheComponentStrategy::flushRestored() {
  for (const std::string& path : restored_) {
    for (const std::string& item : {path, paths::deleteLastComponent(path)}) {
      if (const Status flushed = files::flushItem(item); !flushed && !flushed.error().isNoSuchFile()) {
        return fail("QVNRestoreCacheComponentStrategy: Unable to restore file. %@", flushed.error());
      }
    }
  }
  return true;
}

Status QVNRestoreCacheComponentStrategy::removeCache() {
  const auto isShared = controller().changes().sharesCache();
  if (!isShared) {
    return isShared.error();
  }
  if (!*isShared) {
    return component_cache::remove();
  }
  for (const std::string& path : controller().changes().owedFiles()) {
    if (Status removed = component_cache::removeCopy(path); !removed) {
      return removed;
    }
  }
  return {};
}

bool QVNRestoreCacheComponentStrategy::restoreFiles() {
  const auto trusted = component_cache::isTrustworthy();
  if (!trusted) {
    return fail("QVNRestoreCacheComponentStrategy: Unable to restore file. %@", trusted.error());
  }
  if (!*trusted) {
    return fail("QVNRestoreCacheComponentStrategy: Others than root could change the cache.");
  }
  return walkPlannedEntries(
      [this](const std::string& /*component*/, const FileEntry& entry) { return restoreEntry(entry); });
}

bool QVNRestoreCacheComponentStrategy::restoreEntry(const FileEntry& entry) {
  if (!entry.isModifiable()) {
    return true;
  }
  const std::string path(entry.listedPath().text());
  return entry.isWildcard() ? restoreMatches(path) : restoreFile(path);
}

bool QVNRestoreCacheComponentStrategy::restoreFile(const std::string& path) {
  const std::string cached = component_cache::cachedPath(path);
  const auto isThere = files::presence(cached);
  if (!isThere) {
    return fail("QVNRestoreCacheComponentStrategy: Unable to restore file. %@", isThere.error());
  }
  return !*isThere || copyFile(cached, path);
}

bool QVNRestoreCacheComponentStrategy::restoreMatches(const std::string& path) {
  const std::string pattern = component_cache::cachedPath(path);
  const auto matches = QVNCacheComponentStrategy::matchesForWildCardedPath(pattern);
  if (!matches && !isMissing(paths::deleteLastComponent(pattern))) {
    return failWith();
  }
  if (!matches || matches->empty()) {
    logging::debug("QVNRestoreCacheComponentStrategy: Unable to find matched files from wildcarded path: '%@'",
                   pattern);
    return true;
  }
  const std::string directory = paths::deleteLastComponent(path);
  return std::ranges::all_of(*matches, [&](const std::string& match) {
    return copyFile(match, paths::append(directory, paths::lastComponent(match)));
  });
}

bool QVNRestoreCacheComponentStrategy::copyFile(const std::string& cached, const std::string& target) {
  logging::debug("QVNRestoreCacheComponentStrategy:\n\tsourceFilePath = %@\n\ttargetFilePath = %@", cached, target);
  if (!component_cache::canHold(target)) {
    return fail(
        "QVNRestoreCacheComponentStrategy: Unable to restore file. %@",
        foundation::fileError(foundation::kWriteInvalidName, "No file can have waited for such a path.", target));
  }
  // A file or link in the way is replaced in one step by the copy; only what cannot be replaced has to go first.
  foundation::GuardedRemoval removal;
  const auto type = removal.typeOf(target);
  if (!type) {
    return fail("Unable to remove file. %@", type.error());
  }
  if (*type == foundation::FileType::Directory) {
    if (const Status removed = removal.removeItem(target); !removed && !removed.error().isNoSuchFile()) {
      return fail("Unable to remove file. %@", removed.error());
    }
  }
  const Status copied = component_cache::copyFile(cached, target);
  if (copied) {
    restored_.insert(target);
    return true;
  }
  if (copied.error().isNoSuchFile()) {
    return true;
  }
  return fail("QVNRestoreCacheComponentStrategy: Unable to restore file. %@", copied.error());
}

}  // namespace deployer
