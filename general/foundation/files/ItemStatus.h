#pragma once

#include <cstdint>
#include <string_view>

namespace foundation {

enum class FileType { Regular, Directory, SymbolicLink, CharacterSpecial, BlockSpecial, Socket, Fifo, Unknown };
/// The platform's text for a type, "NSFileTypeRegular" and so on.
[[nodiscard]] std::string_view fileTypeName(FileType type);

/// What an item on disk is like. A link is described itself, never its target.
struct ItemStatus {
  FileType type = FileType::Unknown;
  std::uint64_t size = 0;  ///< bytes
  std::uint32_t owner = 0;
  std::uint32_t group = 0;
  std::uint32_t permissions = 0;             ///< within kPermissionBits
  std::int64_t modificationNanoseconds = 0;  ///< since 1970
  std::int64_t changeNanoseconds = 0;        ///< since 1970; moves with every change of content or attributes
  std::uint64_t device = 0;
  std::uint64_t inode = 0;

  [[nodiscard]] bool isDirectory() const { return type == FileType::Directory; }
  [[nodiscard]] bool isSymbolicLink() const { return type == FileType::SymbolicLink; }

  friend bool operator==(const ItemStatus&, const ItemStatus&) = default;
};

}  // namespace foundation
