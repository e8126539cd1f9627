#include "general/foundation/files/GuardedRemoval.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string_view>
#include <utility>

#include "general/foundation/Paths.h"
#include "general/foundation/files/GuardedFolder.h"
#include "general/foundation/files/internal/DirectoryListing.h"
#include "general/foundation/files/internal/FilePrimitives.h"
#include "general/foundation/files/internal/StatConversion.h"
#include "general/foundation/files/internal/SystemPaths.h"
#include "general/foundation/files/internal/TreeRemoval.h"

namespace foundation {

namespace {

// How systems answer when a directory that holds something is to be removed.
bool meansNotEmpty(int errnoValue) { return errnoValue == ENOTEMPTY || errnoValue == EEXIST; }

int unlinkFileOrEmptyDirectory(int folder, const char* name) {
  if (unlinkat(folder, name, 0) == 0 || errno == ENOENT) {
    return 0;
  }
  const int reason = errno;
  struct stat item {};
  if (fstatat(folder, name, &item, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(item.st_mode)) {
    errno = reason;
    return -1;
  }
  return unlinkat(folder, name, AT_REMOVEDIR);
}

}  // namespace

Status GuardedRemoval::reach(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string_view name = slash == std::string::npos ? "" : std::string_view(path).substr(slash + 1);
  if (!paths::isAbsolute(path) || system_paths::holdsNul(path) || name.empty() || name == "." || name == "..") {
    return fileError(kWriteInvalidName, "No item can be removed by such a path.", path);
  }
  if (path.size() >= PATH_MAX) {
    return fileError(ENAMETOOLONG, Access::Write, path);
  }
  const std::string_view folder = std::string_view(path).substr(0, slash == 0 ? 1 : slash);
  if (!folder_.isOpen() || folder != folderPath_) {
    folder_.reset();
    folderPath_ = folder;
    auto opened = openGuardedFolder(folderPath_);
    if (!opened) {
      // Nothing lies in what is no directory.
      return opened.error().underlyingErrno == ENOTDIR ? fileError(ENOENT, Access::Write, path) : opened.error();
    }
    folder_ = std::move(*opened);
  }
  name_ = name;
  return {};
}

// Runs a call on the folder and the name that the path stands for; the call gives -1 and sets errno when it fails.
template <class Call>
Status GuardedRemoval::perform(const std::string& path, Access access, Call call) {
  if (auto reached = reach(path); !reached) {
    return reached;
  }
  return call() == 0 ? Status() : Status(fileError(errno, access, path));
}

Result<std::optional<FileType>> GuardedRemoval::typeOf(const std::string& path) {
  struct stat item {};
  const Status found =
      perform(path, Access::Read, [&] { return fstatat(folder_.number(), name(), &item, AT_SYMLINK_NOFOLLOW); });
  if (!found) {
    return found.error().isNoSuchFile() ? Result(std::optional<FileType>()) : found.error();
  }
  return std::optional(statusFrom(item).type);
}

Result<std::vector<std::string>> GuardedRemoval::contentsOfDirectory(const std::string& path) {
  std::vector<std::string> names;
  if (auto listed = perform(path, Access::Read, [&] { return list(names); }); !listed) {
    return listed.error();
  }
  return names;
}

int GuardedRemoval::list(std::vector<std::string>& names) const {
  struct stat item {};
  if (fstatat(folder_.number(), name(), &item, AT_SYMLINK_NOFOLLOW) != 0) {
    return -1;
  }
  const bool isLink = S_ISLNK(item.st_mode);
  if (isLink && item.st_uid != geteuid()) {
    return 0;
  }
  const int links = isLink ? 0 : O_NOFOLLOW;
  const Descriptor directory(openat(folder_.number(), name(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | links));
  return directory.isOpen() ? listDirectory(directory.number(), names) : -1;
}

Status GuardedRemoval::removeFile(const std::string& path) {
  return perform(path, Access::Write, [&] { return unlinkat(folder_.number(), name(), 0); });
}

Result<bool> GuardedRemoval::removeDirectory(const std::string& path, const std::vector<std::string>& items) {
  const Status removed = perform(
      path, Access::Write, [&] { return empty(items) == 0 ? unlinkat(folder_.number(), name(), AT_REMOVEDIR) : -1; });
  if (!removed && !meansNotEmpty(removed.error().underlyingErrno)) {
    return removed.error();
  }
  return removed.ok();
}

int GuardedRemoval::empty(const std::vector<std::string>& items) const {
  if (items.empty()) {
    return 0;
  }
  const Descriptor directory(file_primitives::openSubdirectory(folder_.number(), name()));
  if (!directory.isOpen()) {
    return -1;
  }
  for (const std::string& item : items) {
    if (unlinkFileOrEmptyDirectory(directory.number(), item.c_str()) != 0) {
      return -1;
    }
  }
  return 0;
}

Status GuardedRemoval::removeItem(const std::string& path) {
  return perform(path, Access::Write, [&] { return TreeRemoval(std::move(folder_)).remove(name_); });
}

}  // namespace foundation
