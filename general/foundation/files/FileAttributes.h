#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "general/foundation/propertylist/PropertyList.h"

namespace foundation {

// The names under which attributes of files stand in manifests.
inline constexpr std::string_view kFileOwnerAccountID = "NSFileOwnerAccountID";
inline constexpr std::string_view kFileGroupOwnerAccountID = "NSFileGroupOwnerAccountID";
inline constexpr std::string_view kFilePosixPermissions = "NSFilePosixPermissions";
// The names of what else an item on disk has.
inline constexpr std::string_view kFileType = "NSFileType";
inline constexpr std::string_view kFileSize = "NSFileSize";
inline constexpr std::string_view kFileModificationDate = "NSFileModificationDate";
inline constexpr std::string_view kFileSystemNumber = "NSFileSystemNumber";
inline constexpr std::string_view kFileSystemFileNumber = "NSFileSystemFileNumber";

/// Attributes to give to an item. What is absent is left as it is.
struct FileAttributes {
  std::optional<std::uint32_t> owner;
  std::optional<std::uint32_t> group;
  std::optional<std::uint32_t> permissions;                  ///< the low twelve mode bits
  std::optional<std::int64_t> modificationNanoseconds = {};  ///< since 1970

  /// Owner, group and permissions as a manifest entry gives them; what is missing or no number stays absent.
  /// Numbers are cut to 32 bits, permissions to the low twelve.
  [[nodiscard]] static FileAttributes fromEntry(const PropertyList& entry);
  friend bool operator==(const FileAttributes&, const FileAttributes&) = default;
};

enum class FileType { Regular, Directory, SymbolicLink, CharacterSpecial, BlockSpecial, Socket, Fifo, Unknown };

/// The platform's text for a type, "NSFileTypeRegular" and so on.
[[nodiscard]] std::string_view fileTypeName(FileType type);

/// What an item on disk is like. A link is described itself, never its target.
struct ItemStatus {
  FileType type = FileType::Unknown;
  std::uint64_t size = 0;  ///< bytes
  std::uint32_t owner = 0;
  std::uint32_t group = 0;
  std::uint32_t permissions = 0;             ///< the low twelve mode bits
  std::int64_t modificationNanoseconds = 0;  ///< since 1970
  std::int64_t changeNanoseconds = 0;        ///< since 1970; moves with every change of content or attributes
  std::uint64_t device = 0;
  std::uint64_t inode = 0;

  [[nodiscard]] bool isDirectory() const { return type == FileType::Directory; }
  [[nodiscard]] bool isSymbolicLink() const { return type == FileType::SymbolicLink; }
  /// The attributes as a dictionary, for messages.
  [[nodiscard]] PropertyList dictionary() const;
};

}  // namespace foundation
