#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "general/foundation/Result.h"

namespace deployer {

/// Where modifiable files wait while an older product makes room for a newer one; it mirrors the file system below it.
inline constexpr std::string_view kQVNInstallerCacheRootPath = "/Library/Caches/com.corvane.installer/tmp";

/// The cache on disk. It holds users' settings, so only root may change what lies in it: the folder around it is not
/// used while somebody else can write to it or has put a link in its place. Used on the thread that runs the steps.
namespace component_cache {

/// Whether a file of this path can wait: it names something, and leads nowhere but to a place in the cache.
[[nodiscard]] bool canHold(std::string_view path);
/// Where the file of this path waits.
[[nodiscard]] std::string cachedPath(std::string_view path);

/// Removes the cache with all content, in one step as far as its name goes: a killed run leaves it whole or gone.
/// Nothing to remove is success. The folder around it stays; one in which others could write becomes root's alone.
[[nodiscard]] foundation::Status remove();
/// Makes the folder that holds the cache, or fails when it is not root's own.
[[nodiscard]] foundation::Status makeFolder();
/// Whether what the cache holds, if there is one, was put there by root.
[[nodiscard]] foundation::Result<bool> isTrustworthy();

/// Paths of the files that the cache holds copies of; none when others than root could change it.
[[nodiscard]] foundation::Result<std::vector<std::string>> cachedFiles();
/// Removes one copy; none is success.
[[nodiscard]] foundation::Status removeCopy(std::string_view path);
/// Puts what the cache holds on the disk.
[[nodiscard]] foundation::Status flush();

/// Copies a file with its owner, group, permissions and date, making missing folders on the way to the target. A link
/// of somebody else than root as source is an error: it may lead to what its owner must not read.
[[nodiscard]] foundation::Status copyFile(const std::string& source, const std::string& target);

}  // namespace component_cache

}  // namespace deployer
