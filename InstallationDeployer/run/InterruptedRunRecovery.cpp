#include "InstallationDeployer/run/InterruptedRunRecovery.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "InstallationDeployer/DefaultAttributes.h"
#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "InstallationDeployer/installed/ComponentCache.h"
#include "InstallationDeployer/installed/InterruptedFilesRemoval.h"
#include "InstallationDeployer/processes/ProcessStop.h"
#include "general/foundation/files/FileBuffer.h"
#include "general/foundation/files/FileManager.h"

namespace deployer {

using foundation::PropertyList;
using foundation::Result;
using foundation::Status;
using Role = JournaledManifest::Role;
namespace files = foundation::files;

namespace {

template <class Visitor>
void forEachEntry(const ChangeJournal& journal, const Visitor& visit) {
  for (const JournaledManifest& manifest : journal.manifests) {
    for (const FileEntry& entry : fileEntriesOf(manifest.content())) {
      visit(manifest, entry);
    }
  }
}

/// Paths of modifiable files that went for good, or that another version put something else in the place of.
std::set<std::string> modifiableFilesTaken(const ChangeJournal& journal) {
  std::set<std::string, std::less<>> components;
  std::set<std::string, std::less<>> replaced;
  forEachEntry(journal, [&](const JournaledManifest& manifest, const FileEntry& entry) {
    if (manifest.role == Role::Removed && manifest.withModifiableFiles) {
      components.insert(manifest.component);
    }
    if (manifest.role == Role::Placed && !entry.isModifiable() && entry.path()) {
      replaced.emplace(*entry.path());
    }
  });
  std::set<std::string> taken;
  forEachEntry(journal, [&](const JournaledManifest& manifest, const FileEntry& entry) {
    const bool isTaken = components.contains(manifest.component) ||
                         (manifest.role == Role::Removed && replaced.contains(entry.path().value_or("")));
    if (isTaken && entry.isModifiable() && entry.hasUsablePath()) {
      taken.emplace(*entry.path());
    }
  });
  return taken;
}

}  // namespace

InterruptedRunRecovery::InterruptedRunRecovery(const ChangeJournal& interrupted) : interrupted_(interrupted) {
  for (const JournaledManifest& entry : interrupted.manifests) {
    components_.push_back({&entry, entry.content()});
  }
}

Status InterruptedRunRecovery::run(bool forGood) {
  stopProcesses();
  if (!forGood) {
    if (Status saved = saveUsersFiles(); !saved) {
      return saved;
    }
  }
  return removeFiles(forGood);
}

void InterruptedRunRecovery::stopProcesses() const {
  std::vector<PropertyList> manifests;
  for (const Component& component : components_) {
    manifests.push_back(component.manifest);
  }
  process_stop::stopComponents(manifests);
}

Status InterruptedRunRecovery::saveUsersFiles() const {
  for (const std::string& path : interrupted_.owedFiles) {
    const auto counts = countsMoreThanItsCopy(path);
    if (!counts) {
      return counts.error();
    }
    if (!*counts) {
      continue;
    }
    // What lies at its place now is newer than the copy.
    if (Status copied = component_cache::copyFile(path, component_cache::cachedPath(path));
        !copied && !copied.error().isNoSuchFile()) {
      return copied;
    }
  }
  return interrupted_.owedFiles.empty() ? Status() : component_cache::flush();
}

Result<bool> InterruptedRunRecovery::countsMoreThanItsCopy(const std::string& path) const {
  const auto item = files::attributesOfItem(path);
  if (!item) {
    return item.error().meansNothingThere() ? Result<bool>(false) : item.error();
  }
  if (item->type != foundation::FileType::Regular && !item->isSymbolicLink()) {
    return false;
  }
  if (item->isSymbolicLink() && item->owner != kRootUser) {
    // Nothing is copied that somebody else than root has linked, and nobody's link keeps a run from its end.
    return false;
  }
  const auto copy = files::attributesOfItem(component_cache::cachedPath(path));
  if (!copy) {
    // A copy goes once it is put back, and only then: this is it, or what the user has made of it since.
    return copy.error().meansNothingThere() ? Result<bool>(true) : copy.error();
  }
  const bool isFromElsewhere =
      std::ranges::find(interrupted_.owedFromElsewhere, path) != interrupted_.owedFromElsewhere.end();
  if (isFromElsewhere) {
    return false;
  }
  return item->isSymbolicLink() ? isUsersLink(path) : isUsersFile(path);
}

Result<bool> InterruptedRunRecovery::isUsersLink(const std::string& path) const {
  const auto target = files::destinationOfSymbolicLink(path);
  if (!target) {
    return target.error();
  }
  return !anyPlaced(
      [&](const FileEntry& entry) { return entry.path() == path && entry.linkTarget().value_or("") == *target; });
}

Result<bool> InterruptedRunRecovery::isUsersFile(const std::string& path) const {
  foundation::FileBuffer buffer;
  const auto content = files::readItself(path, buffer);
  if (!content) {
    return content.error();
  }
  const std::string checksum = QVNInstallerChecksum::generateSHA256(*content);
  // Of a file without a checksum nobody can say who wrote it. A link has none and writes no file.
  return !anyPlaced([&](const FileEntry& entry) {
    return entry.path() == path && !entry.isSymbolicLink() && entry.checksum().value_or(checksum) == checksum;
  });
}

bool InterruptedRunRecovery::anyPlaced(const std::function<bool(const FileEntry&)>& holds) const {
  return std::ranges::any_of(components_, [&](const Component& component) {
    return component.entry->role == Role::Placed && std::ranges::any_of(fileEntriesOf(component.manifest), holds);
  });
}

Status InterruptedRunRecovery::removeFiles(bool forGood) const {
  InterruptedFilesRemoval removal;
  for (const Component& component : components_) {
    if (component.entry->role == Role::Placed) {
      removal.addPlaced(component.manifest, component.entry->withModifiableFiles);
    } else {
      removal.addRemoved(component.manifest);
    }
  }
  return removal.remove(forGood);
}

Result<std::set<std::string, std::less<>>> InterruptedRunRecovery::missingModifiableFiles(
    const ChangeJournal& journal) {
  std::set<std::string, std::less<>> missing;
  for (const std::string& path : modifiableFilesTaken(journal)) {
    const auto item = files::attributesOfItem(path);
    if (item) {
      continue;
    }
    if (!item.error().meansNothingThere()) {
      return item.error();
    }
    missing.insert(path);
  }
  return missing;
}

}  // namespace deployer
