#include "InstallationDeployer/installed/InterruptedFilesRemoval.h"

#include <algorithm>
#include <set>

#include "InstallationDeployer/FolderContents.h"
#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "InstallationDeployer/RestrictedPaths.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileBuffer.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/GuardedRemoval.h"
#include "general/foundation/files/TemporaryNames.h"

namespace deployer {

using foundation::FileType;
using foundation::GuardedRemoval;
using foundation::PropertyList;
using foundation::Result;
using foundation::Status;
namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

/// Missing by now is as good as removed.
Status asStatus(const foundation::Error& error) { return error.isNoSuchFile() ? Status() : Status(error); }
Status removed(const Status& status) { return status ? Status() : asStatus(status.error()); }

}  // namespace

void InterruptedFilesRemoval::addRemoved(const PropertyList& manifest) {
  for (const FileEntry& entry : fileEntriesOf(manifest)) {
    if (Place* const place = placeOf(entry)) {
      place->isModifiable |= entry.isModifiable();
      place->isLink |= entry.isSymbolicLink();
      place->removesContents |= entry.isDirectory() && entry.removesContents();
    }
  }
}

void InterruptedFilesRemoval::addPlaced(const PropertyList& manifest, bool withModifiableFiles) {
  addRemoved(manifest);
  for (const FileEntry& entry : fileEntriesOf(manifest)) {
    Place* const place = placeOf(entry);
    if (place == nullptr) {
      continue;
    }
    place->isPlacedLink |= entry.isSymbolicLink();
    // Such a directory is emptied and filled anew by every install.
    place->removesContents |= entry.isDirectory() && entry.externalSource().has_value();
    if (entry.checksum() && (withModifiableFiles || !entry.isModifiable())) {
      place->written.emplace_back(*entry.checksum());
    }
  }
}

InterruptedFilesRemoval::Place* InterruptedFilesRemoval::placeOf(const FileEntry& entry) {
  const auto path = entry.installedPath();
  if (!path || isRestricted(*path) || entry.isRoot() || !paths::isWithinLimits(*path)) {
    return nullptr;
  }
  Place& place = places_[*path];
  place.isOnlyDirectory &= entry.isDirectory() && !entry.isSymbolicLink();
  return &place;
}

Status InterruptedFilesRemoval::remove(bool forGood) const {
  sweepFolders();
  GuardedRemoval removal;
  if (Status gone = removeLinks(forGood, removal); !gone) {
    return gone;
  }
  for (const auto& [path, place] : places_) {
    if (Status gone = removeFrom(path, place, forGood, removal); !gone) {
      return gone;
    }
  }
  return {};
}

void InterruptedFilesRemoval::sweepFolders() const {
  std::set<std::string> folders;
  for (const auto& [path, place] : places_) {
    folders.insert(paths::deleteLastComponent(path));
    if (place.isOnlyDirectory) {
      folders.insert(path);
    }
  }
  for (const std::string& folder : folders) {
    foundation::temporary_names::sweep(folder);
  }
}

Status InterruptedFilesRemoval::removeLinks(bool forGood, GuardedRemoval& removal) const {
  // Where one version has a folder and the other a link, what the folder held must not be looked for through the link.
  // From the root to the leaves, so that no link leads to another one.
  for (auto place = places_.rbegin(); place != places_.rend(); ++place) {
    if (!place->second.isLink) {
      continue;
    }
    const auto type = removal.typeOf(place->first);
    if (!type) {
      return type.error();
    }
    if (*type != FileType::SymbolicLink) {
      continue;
    }
    if (Status gone = removeFrom(place->first, place->second, forGood, removal); !gone) {
      return gone;
    }
  }
  return {};
}

Status InterruptedFilesRemoval::removeFrom(const std::string& path, const Place& place, bool forGood,
                                           GuardedRemoval& removal) {
  const auto found = removal.typeOf(path);
  if (!found) {
    return found.error();
  }
  if (!found->has_value()) {
    return {};
  }
  const FileType type = **found;
  if (type == FileType::Directory) {
    return removeDirectory(path, place, removal);
  }
  if (type == FileType::SymbolicLink && place.isOnlyDirectory) {
    return {};
  }
  const auto stays = staysWithItsUser(path, place, type);
  if (!stays) {
    return stays.error();
  }
  return *stays && !forGood ? Status() : removed(removal.removeFile(path));
}

Status InterruptedFilesRemoval::removeDirectory(const std::string& path, const Place& place, GuardedRemoval& removal) {
  if (place.removesContents) {
    return removed(removal.removeItem(path));
  }
  const auto names = removal.contentsOfDirectory(path);
  if (!names) {
    return asStatus(names.error());
  }
  if (!isAsGoodAsEmpty(*names)) {
    return {};
  }
  const auto emptied = removal.removeDirectory(path, *names);
  return emptied ? Status() : asStatus(emptied.error());
}

Result<bool> InterruptedFilesRemoval::staysWithItsUser(const std::string& path, const Place& place, FileType type) {
  if (!place.isModifiable || type != FileType::Regular) {
    return place.isModifiable && !(type == FileType::SymbolicLink && place.isPlacedLink);
  }
  foundation::FileBuffer buffer;
  const auto content = files::readItself(path, buffer);
  if (!content) {
    return content.error();
  }
  if (content->empty() && !place.written.empty()) {
    // What a power cut leaves of a file whose name was on the disk before its data.
    return false;
  }
  return std::ranges::find(place.written, QVNInstallerChecksum::generateSHA256(*content)) == place.written.end();
}

}  // namespace deployer
