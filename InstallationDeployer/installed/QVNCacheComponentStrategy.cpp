#include "InstallationDeployer/installed/QVNCacheComponentStrategy.h"

#include <algorithm>

#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/installed/ComponentCache.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"

namespace deployer {

namespace files = foundation::files;
namespace paths = foundation::paths;
using foundation::Status;

namespace {

constexpr char kWildcard = '*';

/// Both sides of the wildcard, which may overlap in the name.
bool nameMatches(const std::string& name, const std::string& pattern) {
  const std::size_t wildcard = pattern.find(kWildcard);
  return wildcard == std::string::npos
             ? name == pattern
             : name.starts_with(pattern.substr(0, wildcard)) && name.ends_with(pattern.substr(wildcard + 1));
}

bool matchesWildCardedPath(const std::string& path, const std::string& pattern) {
  return paths::deleteLastComponent(path) == paths::deleteLastComponent(pattern) &&
         nameMatches(paths::lastComponent(path), paths::lastComponent(pattern));
}

// An empty one is none here.
bool hasExternalSource(const FileEntry& entry) { return !entry.externalSource().value_or("").empty(); }

Status keepCopy(const std::string& source, const std::string& path) {
  if (!component_cache::canHold(path)) {
    return foundation::fileError(foundation::kWriteInvalidName, "No file can wait by such a path.", path);
  }
  const Status made = component_cache::makeFolder();
  return made ? component_cache::copyFile(source, component_cache::cachedPath(path)) : made;
}

/// An external source as it stands where the entry has one, else the installed path.
std::string sourceOf(const FileEntry& entry) {
  return std::string(hasExternalSource(entry) ? *entry.externalSource() : entry.listedPath().text());
}

}  // namespace

bool QVNCacheComponentStrategy::work() {
  // Until the copies are written down, the run of another product takes them for nobody's.
  const auto alone = controller().changes().lockCache();
  if (alone == nullptr) {
    return failWith();
  }
  return fillCache() && (controller().changes().begin(plannedComponents()) || failWith());
}

bool QVNCacheComponentStrategy::fillCache() {
  if (const Status removed = removeStaleCache(); !removed && !removed.error().isNoSuchFile()) {
    return fail("QVNCacheComponentStrategy: Unable to cleanup temp file cache. %@", removed.error());
  }
  return walkPlannedEntries(
      [this](const std::string& component, const FileEntry& entry) { return cacheEntry(component, entry); });
}

Status QVNCacheComponentStrategy::removeStaleCache() {
  // What an interrupted run, or the run of another product, is to put back stays.
  const ChangeRecord& changes = controller().changes();
  const auto isShared = changes.sharesCache();
  if (!isShared) {
    return isShared.error();
  }
  return changes.owedFiles().empty() && !*isShared ? component_cache::remove() : Status();
}

bool QVNCacheComponentStrategy::cacheEntry(const std::string& component, const FileEntry& entry) {
  if (!entry.isModifiable() || configuration().remove()) {
    return true;
  }
  const std::string source = sourceOf(entry);
  if (entry.isWildcard()) {
    return cacheMatches(component, entry, source);
  }
  const auto isThere = files::presence(source);
  if (!isThere) {
    return fail("QVNCacheComponentStrategy: Unable to copy file. %@", isThere.error());
  }
  return !*isThere || copyFile(source, std::string(entry.listedPath().text()));
}

bool QVNCacheComponentStrategy::cacheMatches(const std::string& component, const FileEntry& entry,
                                             const std::string& source) {
  if (hasExternalSource(entry)) {
    return fail(
        "QVNCacheComponentStrategy: Wildcard patterns do not support \"%@\".\n\tFound in component plist %@ at list of "
        "files entry for %@",
        kManifestExternalSourcePath, component, entry.listedPath());
  }
  const auto matches = matchesForWildCardedPath(source);
  if (std::ranges::any_of(controller().changes().owedFiles(),
                          [&](const std::string& owed) { return matchesWildCardedPath(owed, source); })) {
    // An interrupted run found some. They wait in the cache, whether or not any are left at their place.
    return std::ranges::all_of(matches.value_or(std::vector<std::string>()),
                               [this](const std::string& match) { return copyFile(match, match); });
  }
  if (!matches || matches->empty()) {
    return fail("QVNCacheComponentStrategy: Unable to find matched files from wildcarded path: '%@'", source);
  }
  return std::ranges::all_of(*matches, [this](const std::string& match) { return copyFile(match, match); });
}

std::optional<std::vector<std::string>> QVNCacheComponentStrategy::matchesForWildCardedPath(
    const std::string& pattern) {
  const std::string directory = paths::deleteLastComponent(pattern);
  const std::string name = paths::lastComponent(pattern);
  const auto items = files::contentsOfDirectory(directory);
  if (!items) {
    logging::error("QVNCacheComponentStrategy: Unable to get contents of %@. Error:%@", directory, items.error());
    return std::nullopt;
  }
  std::vector<std::string> matches;
  if (name.find(kWildcard) == std::string::npos) {
    logging::debug("QVNCacheComponentStrategy: Cannot find wildcard from pathPattern: %@", name);
    matches.push_back(pattern);
  } else {
    for (const std::string& item : *items) {
      if (nameMatches(item, name)) {
        matches.push_back(paths::append(directory, item));
      }
    }
  }
  logging::debug("QVNCacheComponentStrategy: matchedFilePaths: %@", matches);
  return matches;
}

bool QVNCacheComponentStrategy::copyFile(const std::string& source, const std::string& path) {
  const auto& owed = controller().changes().owedFiles();
  if (std::ranges::find(owed, path) != owed.end()) {
    // Which of the two counts is decided when what was interrupted is put right.
    return true;
  }
  logging::debug("QVNCacheComponentStrategy:\n\tsourceFilePath = %@\n\ttargetFilePath = %@", source,
                 component_cache::cachedPath(path));
  const Status copied = keepCopy(source, path);
  if (copied) {
    controller().changes().noteOwedFile(path, source != path);
    return true;
  }
  if (copied.error().isNoSuchFile()) {
    return true;
  }
  return fail("QVNCacheComponentStrategy: Unable to copy file. %@", copied.error());
}

}  // namespace deployer
