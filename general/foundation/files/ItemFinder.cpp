#include "general/foundation/files/ItemFinder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "general/foundation/files/internal/FilePrimitives.h"
#include "general/foundation/files/internal/StatConversion.h"
#include "general/foundation/files/internal/SystemPaths.h"

namespace foundation {

namespace {

Result<std::optional<ItemStatus>> unlessNothingThere(Error error) {
  if (error.meansNothingThere()) {
    return std::optional<ItemStatus>();
  }
  return error;
}

}  // namespace

Result<std::optional<ItemStatus>> ItemFinder::find(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos || path.front() != '/' || system_paths::holdsNul(path)) {
    return std::optional<ItemStatus>();
  }
  if (const Status entered = enterFolder(std::string_view(path).substr(0, slash + 1)); !entered) {
    return unlessNothingThere(entered.error());
  }
  const char* const name = path.c_str() + slash + 1;
  struct stat item {};
  if (fstatat(folder_.number(), *name == '\0' ? "." : name, &item, AT_SYMLINK_NOFOLLOW) != 0) {
    return unlessNothingThere(fileError(errno, Access::Read, path));
  }
  return std::optional(statusFrom(item));
}

Status ItemFinder::enterFolder(std::string_view folder) {
  if (folder_.isOpen() && folder == folderPath_) {
    return {};
  }
  folder_.reset();
  folderPath_ = folder;
  folder_ = Descriptor(file_primitives::openFolder(folderPath_.c_str()));
  return folder_.isOpen() ? Status() : Status(fileError(errno, Access::Read, folderPath_));
}

}  // namespace foundation
