#include "general/foundation/files/GuardedFolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string_view>
#include <utility>
#include <vector>

#include "general/foundation/Paths.h"
#include "general/foundation/files/internal/FilePrimitives.h"

namespace foundation {

namespace {

// As many as systems follow themselves.
constexpr int kMostLinks = 40;

// One way from the root down, name by name, where each name is opened before it is judged: what is judged cannot be
// replaced by something else before it is used (no TOCTOU).
class GuardedWalk {
 public:
  explicit GuardedWalk(const std::string& path) : path_(path) { goOnWith(path); }

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

 private:
  [[nodiscard]] Error failed(int errnoValue) const { return fileError(errnoValue, Access::Write, path_); }

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
    return fileError(kWriteNoPermission, "The link \"" + name + "\" on the way there belongs to somebody else.", path_);
  }

  const std::string& path_;
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
  return GuardedWalk(path).walk();
}

}  // namespace foundation
