#pragma once

#include <cstdint>
#include <optional>

namespace foundation {

/// The mode bits that are permissions: read, write and execute of three, set-id and sticky.
inline constexpr std::uint32_t kPermissionBits = 07777;

/// Attributes to give to an item. What is absent is left as it is.
struct FileAttributes {
  std::optional<std::uint32_t> owner;
  std::optional<std::uint32_t> group;
  std::optional<std::uint32_t> permissions;                  ///< within kPermissionBits
  std::optional<std::int64_t> modificationNanoseconds = {};  ///< since 1970

  friend bool operator==(const FileAttributes&, const FileAttributes&) = default;
};

}  // namespace foundation
