#include "general/foundation/files/internal/FilePrimitives.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/mount.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

#include "general/foundation/Descriptor.h"

namespace foundation::file_primitives {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

std::int64_t nanoseconds(const timespec& time) { return time.tv_sec * kNanosecondsPerSecond + time.tv_nsec; }

int renameWithFlags(const char* from, const char* to, unsigned int flags) {
  const int result = renamex_np(from, to, flags);
  if (result != 0 && errno == ENOTSUP) {
    errno = EINVAL;
  }
  return result;
}

}  // namespace

int renameExclusively(const char* from, const char* to) { return renameWithFlags(from, to, RENAME_EXCL); }

int exchange(const char* one, const char* other) { return renameWithFlags(one, other, RENAME_SWAP); }

int openSubdirectory(int folder, const char* name) {
  Descriptor directory(openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat parent {};
  struct stat child {};
  if (!directory.isOpen() || fstat(folder, &parent) != 0 || fstat(directory.number(), &child) != 0) {
    return -1;
  }
  if (parent.st_dev != child.st_dev) {
    errno = EXDEV;
    return -1;
  }
  return directory.release();
}

int openFolder(const char* path) { return open(path, O_SEARCH | O_CLOEXEC); }

int openFolderWithoutLinks(const char* path) { return open(path, O_SEARCH | O_NOFOLLOW_ANY | O_CLOEXEC); }

int openItself(int folder, const char* name) {
  return openat(folder, name, O_RDONLY | O_SYMLINK | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

ssize_t readOpenLink(int link, char* text, std::size_t size) { return freadlink(link, text, size); }

int openUnnamedFile(const char* /*folder*/) {
  errno = EOPNOTSUPP;
  return -1;
}

int nameUnnamedFile(int /*file*/, const char* /*path*/) {
  errno = EOPNOTSUPP;
  return -1;
}

bool linksHavePermissions() { return true; }

int setLinkPermissions(const char* path, std::uint32_t permissions) {
  return lchmod(path, static_cast<mode_t>(permissions));
}

std::int64_t modificationTime(const struct stat& item) { return nanoseconds(item.st_mtimespec); }
std::int64_t changeTime(const struct stat& item) { return nanoseconds(item.st_ctimespec); }

int attributesOfFileSystem(const char* path, FileSystemAttributes& attributes) {
  struct statfs system {};
  if (statfs(path, &system) != 0) {
    return -1;
  }
  attributes.freeBytes = system.f_bavail * std::uint64_t{system.f_bsize};
  attributes.totalBytes = system.f_blocks * std::uint64_t{system.f_bsize};
  return 0;
}

int flushFileSystem(const char* path) {
  const Descriptor item(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!item.isOpen()) {
    return -1;
  }
  // sync() hands everything to the device, whose own cache the second call empties.
  sync();
  return flushFile(item.number());
}

int flushFile(int file) { return fcntl(file, F_FULLFSYNC) == -1 ? -1 : 0; }

ssize_t listExtendedAttributes(const char* path, char* names, std::size_t size) {
  return listxattr(path, names, size, XATTR_NOFOLLOW);
}

}  // namespace foundation::file_primitives
