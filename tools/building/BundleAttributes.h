#pragma once

#include "general/foundation/files/FileAttributes.h"

namespace bundletool {

// What everything in a bundle gets, whatever the umask; the owner is who builds.
inline constexpr foundation::FileAttributes kBundleFolderAttributes{std::nullopt, std::nullopt, 0755};
inline constexpr foundation::FileAttributes kBundleFileAttributes{std::nullopt, std::nullopt, 0644};
inline constexpr foundation::FileAttributes kBundleExecutableAttributes{std::nullopt, std::nullopt, 0755};

}  // namespace bundletool
