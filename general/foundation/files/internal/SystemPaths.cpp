#include "general/foundation/files/internal/SystemPaths.h"

#include <sys/stat.h>

#include "general/foundation/Paths.h"

namespace foundation::system_paths {

bool holdsNul(const std::string& path) { return path.find('\0') != std::string::npos; }

std::string withoutTrailingSlashes(const std::string& path) {
  const std::size_t last = path.find_last_not_of('/');
  return last == std::string::npos ? path.substr(0, 1) : path.substr(0, last + 1);
}

std::string folderOf(const std::string& path) {
  std::string folder = paths::deleteLastComponent(path);
  return folder.empty() ? "." : folder;
}

bool isDirectory(const std::string& path) {
  struct stat item {};
  return stat(path.c_str(), &item) == 0 && S_ISDIR(item.st_mode);
}

}  // namespace foundation::system_paths
