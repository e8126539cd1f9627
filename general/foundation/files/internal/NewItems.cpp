#include "general/foundation/files/internal/NewItems.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "general/foundation/Descriptor.h"
#include "general/foundation/files/TemporaryNames.h"
#include "general/foundation/files/internal/AttributeChanges.h"
#include "general/foundation/files/internal/ExclusiveRename.h"
#include "general/foundation/files/internal/OpenFiles.h"
#include "general/foundation/files/internal/SystemPaths.h"

namespace foundation::new_items {

using system_paths::folderOf;
using system_paths::isDirectory;

namespace {

constexpr std::uint32_t kDefaultDirectoryPermissions = 0755;

// Runs a clean-up without losing the errno that made it necessary.
template <class CleanUp>
int failAfter(CleanUp cleanUp) {
  const int reason = errno;
  cleanUp();
  errno = reason;
  return -1;
}

int setNewDirectoryAttributes(const std::string& path, FileAttributes attributes) {
  if (!attributes.permissions) {
    attributes.permissions = kDefaultDirectoryPermissions;
  }
  const Descriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat item {};
  if (!directory.isOpen() || fstat(directory.number(), &item) != 0) {
    return -1;
  }
  // Whoever may write to the folder could have put another directory in place of ours.
  if (item.st_uid != geteuid()) {
    errno = EPERM;
    return -1;
  }
  return open_files::setAttributes(directory.number(), attributes);
}

int makeDirectoryUnlessThere(const std::string& path, const FileAttributes& attributes) {
  if (isDirectory(path) || makeDirectory(path, attributes) == 0) {
    return 0;
  }
  const int reason = errno;
  if (reason == EEXIST && isDirectory(path)) {
    // Another process was faster.
    return 0;
  }
  errno = reason;
  return -1;
}

}  // namespace

int makeDirectory(const std::string& path, const FileAttributes& attributes) {
  const std::string temporaryPath = temporary_names::make(folderOf(path));
  if (mkdir(temporaryPath.c_str(), S_IRWXU) != 0) {
    return -1;
  }
  if (setNewDirectoryAttributes(temporaryPath, attributes) != 0 || renameWithoutReplacing(temporaryPath, path) != 0) {
    return failAfter([&] { rmdir(temporaryPath.c_str()); });
  }
  return 0;
}

int makeDirectories(const std::string& path, const FileAttributes& attributes) {
  std::vector<std::string> missing{path};
  struct stat item {};
  while (stat(missing.back().c_str(), &item) != 0) {
    std::string parent = folderOf(missing.back());
    if (errno != ENOENT) {
      return -1;
    }
    if (parent == missing.back()) {
      break;
    }
    missing.push_back(std::move(parent));
  }
  for (auto directory = missing.rbegin(); directory != missing.rend(); ++directory) {
    if (makeDirectoryUnlessThere(*directory, attributes) != 0) {
      return -1;
    }
  }
  return 0;
}

int makeLink(const std::string& path, const std::string& target, const FileAttributes& attributes) {
  const std::string temporaryPath = temporary_names::make(folderOf(path));
  if (symlink(target.c_str(), temporaryPath.c_str()) != 0) {
    return -1;
  }
  if (attribute_changes::changeLink(temporaryPath, attributes) != 0 ||
      renameWithoutReplacing(temporaryPath, path) != 0) {
    return failAfter([&] { unlink(temporaryPath.c_str()); });
  }
  return 0;
}

}  // namespace foundation::new_items
