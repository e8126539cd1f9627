#include "general/foundation/files/internal/TreeRemoval.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "general/foundation/files/internal/DirectoryListing.h"
#include "general/foundation/files/internal/FilePrimitives.h"

namespace foundation {

namespace {

// The two answers that systems give when asked to unlink a directory.
bool meansDirectory(int errnoValue) { return errnoValue == EISDIR || errnoValue == EPERM; }

bool isDirectory(int folder, const std::string& name) {
  struct stat item {};
  return fstatat(folder, name.c_str(), &item, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(item.st_mode);
}

}  // namespace

int TreeRemoval::remove(const std::string& name) {
  if (!isDirectory(folder_.number(), name)) {
    return unlinkat(folder_.number(), name.c_str(), 0);
  }
  int result = descend(name);
  while (result == 0 && !levels_.empty()) {
    std::vector<std::string>& subdirectories = levels_.back().subdirectories;
    if (subdirectories.empty()) {
      result = ascend();
    } else {
      const std::string next = std::move(subdirectories.back());
      subdirectories.pop_back();
      result = descend(next);
    }
  }
  return result;
}

int TreeRemoval::descend(const std::string& name) {
  struct stat above {};
  if (fstat(folder_.number(), &above) != 0) {
    return -1;
  }
  Descriptor directory(file_primitives::openSubdirectory(folder_.number(), name.c_str()));
  if (!directory.isOpen()) {
    return -1;
  }
  folder_ = std::move(directory);
  levels_.push_back({.name = name, .device = above.st_dev, .inode = above.st_ino, .subdirectories = {}});
  return removeFiles(levels_.back().subdirectories);
}

int TreeRemoval::ascend() {
  const Level level = std::move(levels_.back());
  levels_.pop_back();
  Descriptor parent(openat(folder_.number(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat above {};
  if (!parent.isOpen() || fstat(parent.number(), &above) != 0) {
    return -1;
  }
  // Somebody moved the directory elsewhere meanwhile; what lies there is not ours to remove.
  if (above.st_dev != level.device || above.st_ino != level.inode) {
    errno = EBUSY;
    return -1;
  }
  folder_ = std::move(parent);
  return unlinkat(folder_.number(), level.name.c_str(), AT_REMOVEDIR);
}

int TreeRemoval::removeFiles(std::vector<std::string>& subdirectories) {
  std::vector<std::string> names;
  if (listDirectory(folder_.number(), names) != 0) {
    return -1;
  }
  for (std::string& name : names) {
    if (unlinkat(folder_.number(), name.c_str(), 0) == 0 || errno == ENOENT) {
      continue;
    }
    const int reason = errno;
    if (!meansDirectory(reason) || !isDirectory(folder_.number(), name)) {
      errno = reason;
      return -1;
    }
    subdirectories.push_back(std::move(name));
  }
  return 0;
}

}  // namespace foundation
