#include "general/foundation/files/internal/AttributeChanges.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "general/foundation/Descriptor.h"
#include "general/foundation/files/internal/FilePrimitives.h"
#include "general/foundation/files/internal/OpenFiles.h"
#include "general/foundation/files/internal/SystemPaths.h"

namespace foundation::attribute_changes {

namespace {

constexpr std::uint32_t kSetIdBits = 06000;

int changeOwner(const std::string& path, const FileAttributes& attributes) {
  if (open_files::givesToNobody(attributes)) {
    errno = EINVAL;
    return -1;
  }
  return chown(path.c_str(), attributes.owner.value_or(open_files::kNobodyAtAll),
               attributes.group.value_or(open_files::kNobodyAtAll));
}

// A change of owner takes the set-id bits away; attributes that are not to change have to be put back.
int changeOwnerOnly(const std::string& path, const FileAttributes& attributes) {
  struct stat item {};
  if (stat(path.c_str(), &item) != 0 || changeOwner(path, attributes) != 0) {
    return -1;
  }
  return (item.st_mode & kSetIdBits) == 0 ? 0 : chmod(path.c_str(), item.st_mode & kPermissionBits);
}

int changeOwnerAndPermissions(const std::string& path, const FileAttributes& attributes) {
  const bool changesOwner = attributes.owner || attributes.group;
  if (!attributes.permissions) {
    return changesOwner ? changeOwnerOnly(path, attributes) : 0;
  }
  if (changesOwner && changeOwner(path, attributes) != 0) {
    return -1;
  }
  return chmod(path.c_str(), static_cast<mode_t>(*attributes.permissions));
}

bool isLinkOfOthers(const std::string& path) {
  struct stat item {};
  return lstat(path.c_str(), &item) == 0 && S_ISLNK(item.st_mode) && item.st_uid != geteuid();
}

bool isLink(const std::string& path) {
  struct stat item {};
  return lstat(path.c_str(), &item) == 0 && S_ISLNK(item.st_mode);
}

// The folder is held while its attributes change: who may write to its parent could put a link in its place meanwhile
// (a symlink race).
int changeDirectoryAttributes(const std::string& path, const FileAttributes& attributes) {
  const int following = isLink(path) ? 0 : O_NOFOLLOW;
  const Descriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | following));
  return directory.isOpen() ? open_files::setAttributes(directory.number(), attributes) : -1;
}

}  // namespace

int change(const std::string& path, const FileAttributes& attributes) {
  if (isLinkOfOthers(path)) {
    errno = EPERM;
    return -1;
  }
  if (attributes.permissions && system_paths::isDirectory(path)) {
    return changeDirectoryAttributes(path, attributes);
  }
  if (changeOwnerAndPermissions(path, attributes) != 0) {
    return -1;
  }
  return attributes.modificationNanoseconds
             ? utimensat(AT_FDCWD, path.c_str(), open_files::timesFor(*attributes.modificationNanoseconds).data(), 0)
             : 0;
}

int changeLink(const std::string& path, const FileAttributes& attributes) {
  if (open_files::givesToNobody(attributes)) {
    errno = EINVAL;
    return -1;
  }
  if (lchown(path.c_str(), attributes.owner.value_or(open_files::kNobodyAtAll),
             attributes.group.value_or(open_files::kNobodyAtAll)) != 0) {
    return -1;
  }
  return attributes.permissions ? file_primitives::setLinkPermissions(path.c_str(), *attributes.permissions) : 0;
}

}  // namespace foundation::attribute_changes
