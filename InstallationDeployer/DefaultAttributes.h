#pragma once

#include "general/foundation/files/FileAttributes.h"

/// What the engine gives to files and folders that it makes on its own, which no manifest describes.
namespace deployer {

inline constexpr std::uint32_t kRootUser = 0;
inline constexpr std::uint32_t kAdminGroup = 80;

inline constexpr foundation::FileAttributes kDefaultDirectoryAttributes{
    .owner = kRootUser, .group = kAdminGroup, .permissions = 0755};
inline constexpr foundation::FileAttributes kReceiptFileAttributes{
    .owner = kRootUser, .group = kAdminGroup, .permissions = 0644};
inline constexpr foundation::FileAttributes kReceiptExecutableAttributes{
    .owner = kRootUser, .group = kAdminGroup, .permissions = 0755};

}  // namespace deployer
