#include "general/foundation/files/GuardedFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "general/foundation/Paths.h"
#include "general/foundation/files/internal/FilePrimitives.h"
#include "general/foundation/files/internal/SystemPaths.h"

namespace foundation {

namespace {

// As many as systems follow themselves.
constexpr int kMostLinks = 40;

// One way from the root down, name by name, where each name is opened before it is judged: what is judged cannot be
// replaced by something else before it is used (no TOCTOU).
class GuardedWalk {
 public:
  GuardedWalk(const std::string& path, Access access) : path_(path), access_(access) { goOnWith(path); }

  Result<Descriptor> walk() {
    while (!names_.empty()) {
      const std::string name = std::move(names_.back());
      names_.pop_back();
      if (auto entered = enter(name); !entered) {
        return entered.error();
      }
    }
    return folder_.isOpen() ? Result<Descriptor>(std::move(folder_)) : failed(errno);
  }

  /// The same to an item that is read.
  Result<GuardedItem> walkToItem() {
    std::optional<struct stat> itself;
    while (!names_.empty()) {
      const std::string name = std::move(names_.back());
      names_.pop_back();
      if (names_.empty()) {
        struct stat status {};
        if (fstatat(folder_.number(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
          return failed(errno);
        }
        itself = itself.value_or(status);
        if (S_ISREG(status.st_mode)) {
          return openFile(name, *itself);
        }
        if (!S_ISDIR(status.st_mode) && !S_ISLNK(status.st_mode)) {
          return notRegular();
        }
      }
      if (auto entered = enter(name); !entered) {
        return entered.error();
      }
    }
    Descriptor folder(openat(folder_.number(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    if (!folder.isOpen() || fstat(folder.number(), &status) != 0) {
      return failed(errno);
    }
    return GuardedItem{std::move(folder), status, itself.value_or(status)};
  }

 private:
  [[nodiscard]] Error failed(int errnoValue) const { return fileError(errnoValue, access_, path_); }

  // What the name stands for by now is judged once it is open.
  Result<GuardedItem> openFile(const std::string& name, const struct stat& itself) {
    Descriptor file(openat(folder_.number(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    struct stat folder {};
    if (!file.isOpen() || fstat(file.number(), &status) != 0 || fstat(folder_.number(), &folder) != 0) {
      return failed(errno);
    }
    if (!S_ISREG(status.st_mode)) {
      return notRegular();
    }
    const bool othersCanWrite = folder.st_uid != geteuid() || (folder.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (status.st_nlink > 1 && othersCanWrite) {
      return fileError(kReadNoPermission,
                       "The item \"" + name + "\" has several names, and others can write to its folder.", path_);
    }
    return GuardedItem{std::move(file), status, S_ISLNK(itself.st_mode) ? itself : status};
  }

  [[nodiscard]] Error notRegular() const {
    return fileError(kReadUnknown, "The item \"" + paths::lastComponent(path_) + "\" is not a regular file.", path_);
  }

  void goOnWith(std::string_view path) {
    if (paths::isAbsolute(path)) {
      folder_ = Descriptor(file_primitives::openFolder("/"));
    }
    std::vector<std::string> names = paths::components(path);
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
      if (*name != "/") {
        names_.push_back(std::move(*name));
      }
    }
  }

  Status enter(const std::string& name) {
    Descriptor item(file_primitives::openItself(folder_.number(), name.c_str()));
    struct stat status {};
    if (!item.isOpen() || fstat(item.number(), &status) != 0) {
      return failed(errno);
    }
    if (S_ISLNK(status.st_mode)) {
      return status.st_uid == geteuid() ? follow(item) : foreignLink(name);
    }
    if (!S_ISDIR(status.st_mode)) {
      return failed(ENOTDIR);
    }
    folder_ = std::move(item);
    return {};
  }

  Status follow(const Descriptor& link) {
    if (++links_ > kMostLinks) {
      return failed(ELOOP);
    }
    std::string target(PATH_MAX, '\0');
    const ssize_t length = file_primitives::readOpenLink(link.number(), target.data(), target.size());
    if (length <= 0 || static_cast<std::size_t>(length) >= target.size()) {
      return failed(length < 0 ? errno : ENAMETOOLONG);
    }
    target.resize(static_cast<std::size_t>(length));
    goOnWith(target);
    return {};
  }

  [[nodiscard]] Error foreignLink(const std::string& name) const {
    return fileError(
        access_ == Access::Write ? kWriteNoPermission : kReadNoPermission,
        "The link \"" + name +
            "\" on the way there belongs to somebody else. Remove the link and run the same command again.",
        path_);
  }

  const std::string& path_;
  const Access access_;
  Descriptor folder_;
  std::vector<std::string> names_;  // still to enter, the next one last
  int links_ = 0;
};

}  // namespace

Result<Descriptor> openGuardedFolder(const std::string& path) {
  Descriptor folder(file_primitives::openFolderWithoutLinks(path.c_str()));
  if (folder.isOpen()) {
    return folder;
  }
  if (errno == ENOENT) {
    return fileError(errno, Access::Write, path);
  }
  return GuardedWalk(path, Access::Write).walk();
}

Result<GuardedItem> openGuardedItem(const std::string& path) {
  if (!paths::isAbsolute(path) || system_paths::holdsNul(path)) {
    return fileError(EINVAL, Access::Read, path);
  }
  return GuardedWalk(path, Access::Read).walkToItem();
}

}  // namespace foundation
