#include "general/foundation/files/ItemFinder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <string_view>

#include "general/foundation/files/internal/FilePrimitives.h"
#include "general/foundation/files/internal/StatConversion.h"
#include "general/foundation/files/internal/SystemPaths.h"

namespace foundation {

std::optional<ItemStatus> ItemFinder::find(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos || path.front() != '/' || system_paths::holdsNul(path)) {
    return std::nullopt;
  }
  const std::string_view folder = std::string_view(path).substr(0, slash + 1);
  if (!folder_.isOpen() || folder != folderPath_) {
    folderPath_ = folder;
    folder_ = Descriptor(file_primitives::openFolder(folderPath_.c_str()));
  }
  const char* const name = path.c_str() + slash + 1;
  struct stat item {};
  if (!folder_.isOpen() || fstatat(folder_.number(), *name == '\0' ? "." : name, &item, AT_SYMLINK_NOFOLLOW) != 0) {
    return std::nullopt;
  }
  return statusFrom(item);
}

}  // namespace foundation
