#include "InstallationDeployer/EntryAttributes.h"

#include "InstallationDeployer/ManifestKeys.h"

namespace deployer {

using foundation::FileAttributes;
using foundation::PropertyList;

namespace {

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

FileAttributes attributesFromEntry(const PropertyList& entry) {
  FileAttributes attributes{.owner = number32(entry[kFileOwnerAccountID]),
                            .group = number32(entry[kFileGroupOwnerAccountID]),
                            .permissions = number32(entry[kFilePosixPermissions])};
  if (attributes.permissions) {
    *attributes.permissions &= foundation::kPermissionBits;
  }
  return attributes;
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
