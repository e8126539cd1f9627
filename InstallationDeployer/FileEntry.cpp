#include "InstallationDeployer/FileEntry.h"

#include <algorithm>

#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/Paths.h"
#include "general/foundation/extensions/NSDictionaryExtensions.h"

namespace deployer {

using foundation::FileAttributes;
using foundation::PropertyList;
using foundation::NSDictionaryExtensions::boolForKey;
namespace paths = foundation::paths;

namespace {

constexpr std::string_view kSystemFolder = "/System/";

constexpr double kNanosecondsPerSecond = 1e9;
constexpr double kSecondsFrom1970To2001 = 978307200;

// The names of what else an item on disk has.
constexpr std::string_view kFileType = "NSFileType";
constexpr std::string_view kFileSize = "NSFileSize";
constexpr std::string_view kFileModificationDate = "NSFileModificationDate";
constexpr std::string_view kFileSystemNumber = "NSFileSystemNumber";
constexpr std::string_view kFileSystemFileNumber = "NSFileSystemFileNumber";

// Cut to 32 bits as the system's own types are, so that -2 names the same account as 4294967294.
std::optional<std::uint32_t> number32(const PropertyList& value) {
  if (const auto number = value.integer()) {
    return static_cast<std::uint32_t>(*number);
  }
  return std::nullopt;
}

}  // namespace

bool isUsablePath(std::string_view path) {
  if (path == "/") {
    return true;
  }
  if (path.find('\0') != std::string_view::npos) {
    return false;
  }
  // An entry that names no place below the root must not end up as the root itself, nor beside it.
  bool named = false;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view component = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    if (component.empty() || component == ".") {
      continue;
    }
    if (component == "..") {
      return false;
    }
    named = true;
  }
  return named;
}

bool liesInSystemFolder(std::string_view path) { return path.starts_with(kSystemFolder); }

const PropertyList& FileEntry::listedPath() const { return dictionary_[kManifestFilePath]; }

bool FileEntry::hasUsablePath() const {
  const auto listed = path();
  return listed && isUsablePath(*listed);
}

bool FileEntry::isRoot() const {
  const auto listed = path();
  return listed && paths::standardize(*listed) == "/";
}

std::optional<std::string> FileEntry::installedPath() const {
  const auto listed = path();
  if (!listed || !paths::isAbsolute(*listed) || !isUsablePath(*listed)) {
    return std::nullopt;
  }
  return paths::standardize(*listed);
}

bool FileEntry::isDirectory() const { return boolForKey(dictionary_, kManifestIsDirectory); }

bool FileEntry::isSymbolicLink() const { return boolForKey(dictionary_, kManifestIsSymbolicLink); }

std::optional<std::string_view> FileEntry::linkTarget() const {
  return dictionary_[kManifestSymbolicLinkTarget].string();
}

std::optional<std::string_view> FileEntry::checksum() const { return dictionary_[kManifestSHAChecksum].string(); }

std::optional<std::string_view> FileEntry::externalSource() const {
  return dictionary_[kManifestExternalSourcePath].string();
}

bool FileEntry::checksForExternalChanges() const {
  return boolForKey(dictionary_, kManifestCheckForExternalFileChanges);
}

bool FileEntry::isModifiable() const { return boolForKey(dictionary_, kManifestIsModifiableFile); }

bool FileEntry::isWildcard() const { return boolForKey(dictionary_, kManifestIsWildcardPath); }

bool FileEntry::removesContents() const { return boolForKey(dictionary_, kManifestRemoveDirectoryAndContents); }

FileAttributes FileEntry::attributes() const {
  FileAttributes attributes{.owner = number32(dictionary_[kFileOwnerAccountID]),
                            .group = number32(dictionary_[kFileGroupOwnerAccountID]),
                            .permissions = number32(dictionary_[kFilePosixPermissions])};
  if (attributes.permissions) {
    *attributes.permissions &= foundation::kPermissionBits;
  }
  return attributes;
}

std::vector<FileEntry> fileEntriesOf(const PropertyList& manifest) {
  const auto elements = manifest[kManifestListOfFiles].elements();
  return {elements.begin(), elements.end()};
}

PropertyList dictionaryOf(const foundation::ItemStatus& item) {
  const double modified = static_cast<double>(item.modificationNanoseconds) / kNanosecondsPerSecond;
  return PropertyList::dictionary({
      {std::string(kFileType), fileTypeName(item.type)},
      {std::string(kFileSize), item.size},
      {std::string(kFileOwnerAccountID), static_cast<std::int64_t>(item.owner)},
      {std::string(kFileGroupOwnerAccountID), static_cast<std::int64_t>(item.group)},
      {std::string(kFilePosixPermissions), static_cast<std::int64_t>(item.permissions)},
      {std::string(kFileModificationDate), PropertyList::date(modified - kSecondsFrom1970To2001)},
      {std::string(kFileSystemNumber), item.device},
      {std::string(kFileSystemFileNumber), item.inode},
  });
}

}  // namespace deployer
