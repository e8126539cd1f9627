#include "general/foundation/files/FileAttributes.h"

namespace foundation {

namespace {

constexpr std::uint32_t kPermissionBits = 07777;
constexpr double kNanosecondsPerSecond = 1e9;
constexpr double kSecondsFrom1970To2001 = 978307200;

// Cut to 32 bits as the system's own types are, so that -2 names the same account as 4294967294.
std::optional<std::uint32_t> number32(const PropertyList& value) {
  if (const auto number = value.integer()) {
    return static_cast<std::uint32_t>(*number);
  }
  return std::nullopt;
}

}  // namespace

FileAttributes FileAttributes::fromEntry(const PropertyList& entry) {
  FileAttributes attributes{.owner = number32(entry[kFileOwnerAccountID]),
                            .group = number32(entry[kFileGroupOwnerAccountID]),
                            .permissions = number32(entry[kFilePosixPermissions])};
  if (attributes.permissions) {
    *attributes.permissions &= kPermissionBits;
  }
  return attributes;
}

std::string_view fileTypeName(FileType type) {
  switch (type) {
    case FileType::Regular:
      return "NSFileTypeRegular";
    case FileType::Directory:
      return "NSFileTypeDirectory";
    case FileType::SymbolicLink:
      return "NSFileTypeSymbolicLink";
    case FileType::CharacterSpecial:
      return "NSFileTypeCharacterSpecial";
    case FileType::BlockSpecial:
      return "NSFileTypeBlockSpecial";
    case FileType::Socket:
      return "NSFileTypeSocket";
    case FileType::Fifo:
    case FileType::Unknown:
      break;
  }
  return "NSFileTypeUnknown";
}

PropertyList ItemStatus::dictionary() const {
  const double modified = static_cast<double>(modificationNanoseconds) / kNanosecondsPerSecond;
  return PropertyList::dictionary({
      {std::string(kFileType), fileTypeName(type)},
      {std::string(kFileSize), size},
      {std::string(kFileOwnerAccountID), static_cast<std::int64_t>(owner)},
      {std::string(kFileGroupOwnerAccountID), static_cast<std::int64_t>(group)},
      {std::string(kFilePosixPermissions), static_cast<std::int64_t>(permissions)},
      {std::string(kFileModificationDate), PropertyList::date(modified - kSecondsFrom1970To2001)},
      {std::string(kFileSystemNumber), device},
      {std::string(kFileSystemFileNumber), inode},
  });
}

}  // namespace foundation
