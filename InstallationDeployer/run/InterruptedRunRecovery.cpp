#include "InstallationDeployer/run/InterruptedRunRecovery.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "InstallationDeployer/installed/ComponentCache.h"
#include "InstallationDeployer/installed/InterruptedFilesRemoval.h"
#include "InstallationDeployer/processes/ProcessStop.h"
#include "general/foundation/files/FileBuffer.h"
#include "general/foundation/files/FileManager.h"

namespace deployer {

using foundation::PropertyList;
using foundation::Status;
using Role = JournaledManifest::Role;
namespace files = foundation::files;

namespace {

template <class Visitor>
void forEachEntry(const ChangeJournal& journal, const Visitor& visit) {
  for (const JournaledManifest& manifest : journal.manifests) {
    const PropertyList content = manifest.content();
    for (const PropertyList& element : content[kManifestListOfFiles].elements()) {
      visit(manifest, FileEntry(element));
    }
  }
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
    if (std::ranges::find(interrupted_.owedFromElsewhere, path) != interrupted_.owedFromElsewhere.end() ||
        !isUsers(path)) {
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

bool InterruptedRunRecovery::isUsers(const std::string& path) const {
  foundation::FileBuffer buffer;
  const auto content = files::readItself(path, buffer);
  if (!content) {
    return false;
  }
  const std::string checksum = QVNInstallerChecksum::generateSHA256(*content);
  for (const Component& component : components_) {
    if (component.entry->role != Role::Placed) {
      continue;
    }
    for (const PropertyList& element : component.manifest[kManifestListOfFiles].elements()) {
      const FileEntry entry(element);
      // Of a file without a checksum nobody can say who wrote it.
      if (entry.path() == path && entry.checksum().value_or(checksum) == checksum) {
        return false;
      }
    }
  }
  return true;
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

std::set<std::string, std::less<>> InterruptedRunRecovery::missingModifiableFiles(const ChangeJournal& journal) {
  std::set<std::string, std::less<>> takenComponents;
  std::set<std::string, std::less<>> takenPaths;
  forEachEntry(journal, [&](const JournaledManifest& manifest, const FileEntry& entry) {
    if (manifest.role == Role::Removed && manifest.withModifiableFiles) {
      takenComponents.insert(manifest.component);
    }
    if (manifest.role == Role::Placed && !entry.isModifiable() && entry.path()) {
      takenPaths.emplace(*entry.path());
    }
  });
  std::set<std::string, std::less<>> missing;
  forEachEntry(journal, [&](const JournaledManifest& manifest, const FileEntry& entry) {
    if (!entry.isModifiable() || !entry.hasUsablePath()) {
      return;
    }
    const std::string path(*entry.path());
    const bool isTaken =
        takenComponents.contains(manifest.component) || (manifest.role == Role::Removed && takenPaths.contains(path));
    if (isTaken && !files::attributesOfItem(path)) {
      missing.insert(path);
    }
  });
  return missing;
}

}  // namespace deployer
