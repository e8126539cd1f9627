#pragma once

#include "general/foundation/files/FileAttributes.h"

/// What the engine gives to files and folders that it makes on its own, which no manifest describes, and where a
/// manifest leaves something out.
namespace deployer {

inline constexpr std::uint32_t kRootUser = 0;
inline constexpr std::uint32_t kAdminGroup = 80;

inline constexpr foundation::FileAttributes kDefaultDirectoryAttributes{
    .owner = kRootUser, .group = kAdminGroup, .permissions = 0755};
inline constexpr foundation::FileAttributes kReceiptFileAttributes{
    .owner = kRootUser, .group = kAdminGroup, .permissions = 0644};
inline constexpr foundation::FileAttributes kReceiptExecutableAttributes{
    .owner = kRootUser, .group = kAdminGroup, .permissions = 0755};

/// The first, with what it lacks taken from the second.
[[nodiscard]] constexpr foundation::FileAttributes withDefaults(const foundation::FileAttributes& own,
                                                                const foundation::FileAttributes& defaults) {
  return {.owner = own.owner ? own.owner : defaults.owner,
          .group = own.group ? own.group : defaults.group,
          .permissions = own.permissions ? own.permissions : defaults.permissions};
}

}  // namespace deployer
