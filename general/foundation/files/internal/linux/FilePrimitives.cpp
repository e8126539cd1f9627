#include "general/foundation/files/internal/FilePrimitives.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <stdio.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "general/foundation/Descriptor.h"

namespace foundation::file_primitives {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

std::int64_t nanoseconds(const timespec& time) { return time.tv_sec * kNanosecondsPerSecond + time.tv_nsec; }

// Older kernels know a crossed mount only by its device number, which a mount of the same file system does not change.
int openOnSameDevice(int folder, const char* name) {
  Descriptor directory(openat(folder, name, kDirectoryFlags));
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

// Naming a file takes a capability or a mounted /proc; where both are missing the first attempt tells.
std::atomic<bool> unnamedFilesCanBeNamed{true};

}  // namespace

int renameExclusively(const char* from, const char* to) {
  return renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);
}

int exchange(const char* one, const char* other) { return renameat2(AT_FDCWD, one, AT_FDCWD, other, RENAME_EXCHANGE); }

int openSubdirectory(int folder, const char* name) {
  open_how how{};
  how.flags = kDirectoryFlags;
  how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS;
  const long directory = syscall(SYS_openat2, folder, name, &how, sizeof how);
  // EPERM is how some containers refuse calls that they do not know.
  if (directory < 0 && (errno == ENOSYS || errno == EPERM)) {
    return openOnSameDevice(folder, name);
  }
  return static_cast<int>(directory);
}

int openFolder(const char* path) { return open(path, O_PATH | O_DIRECTORY | O_CLOEXEC); }

int openFolderWithoutLinks(const char* path) {
  open_how how{};
  how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_NO_SYMLINKS;
  return static_cast<int>(syscall(SYS_openat2, AT_FDCWD, path, &how, sizeof how));
}

int openItself(int folder, const char* name) { return openat(folder, name, O_PATH | O_NOFOLLOW | O_CLOEXEC); }

ssize_t readOpenLink(int link, char* text, std::size_t size) { return readlinkat(link, "", text, size); }

int openUnnamedFile(const char* folder) {
  if (!unnamedFilesCanBeNamed.load(std::memory_order_relaxed)) {
    errno = EOPNOTSUPP;
    return -1;
  }
  const int file = open(folder, O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
  // How kernels and file systems without unnamed files answer: the flag contains O_DIRECTORY.
  if (file < 0 && (errno == EISDIR || errno == EINVAL)) {
    errno = EOPNOTSUPP;
  }
  return file;
}

int nameUnnamedFile(int file, const char* path) {
  // Naming by descriptor alone may need a capability that a container withholds; asking again for every file is dear.
  static std::atomic<bool> byDescriptor{true};
  if (byDescriptor.load(std::memory_order_relaxed)) {
    const int result = linkat(file, "", AT_FDCWD, path, AT_EMPTY_PATH);
    if (result == 0 || errno != ENOENT) {
      return result;
    }
  }
  const std::string source = "/proc/self/fd/" + std::to_string(file);
  if (linkat(AT_FDCWD, source.c_str(), AT_FDCWD, path, AT_SYMLINK_FOLLOW) == 0) {
    byDescriptor.store(false, std::memory_order_relaxed);
    return 0;
  }
  if (errno == ENOENT && access(source.c_str(), F_OK) != 0) {
    unnamedFilesCanBeNamed.store(false, std::memory_order_relaxed);
    errno = EOPNOTSUPP;
  }
  return -1;
}

bool linksHavePermissions() { return false; }

int setLinkPermissions(const char* /*path*/, std::uint32_t /*permissions*/) { return 0; }

std::int64_t modificationTime(const struct stat& item) { return nanoseconds(item.st_mtim); }
std::int64_t changeTime(const struct stat& item) { return nanoseconds(item.st_ctim); }

int attributesOfFileSystem(const char* path, FileSystemAttributes& attributes) {
  struct statvfs system {};
  if (statvfs(path, &system) != 0) {
    return -1;
  }
  attributes.freeBytes = std::uint64_t{system.f_bavail} * system.f_frsize;
  attributes.totalBytes = std::uint64_t{system.f_blocks} * system.f_frsize;
  return 0;
}

int flushFileSystem(const char* path) {
  const Descriptor item(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  return item.isOpen() ? syncfs(item.number()) : -1;
}

int flushFile(int file) { return fsync(file); }

ssize_t listExtendedAttributes(const char* path, char* names, std::size_t size) {
  return llistxattr(path, names, size);
}

}  // namespace foundation::file_primitives
