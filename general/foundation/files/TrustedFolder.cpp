#include "general/foundation/files/TrustedFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>

#include "general/foundation/Descriptor.h"
#include "general/foundation/files/internal/OpenFiles.h"

namespace foundation::trusted_folder {

namespace {

constexpr std::uint32_t kWritableByOthers = S_IWGRP | S_IWOTH;

bool isSomebodyElses(const struct stat& item) {
  const bool isOpenToAll = (item.st_mode & S_IWOTH) != 0 && !S_ISLNK(item.st_mode);
  const bool isSticky = S_ISDIR(item.st_mode) && (item.st_mode & S_ISVTX) != 0;
  return (item.st_uid != 0 && item.st_uid != geteuid()) || (isOpenToAll && !isSticky);
}

std::optional<std::string> firstOfSomebodyElseAsWritten(const std::string& path) {
  std::size_t end = 0;
  while (end < path.size()) {
    end = std::min(path.find('/', end + 1), path.size());
    const std::string way = path.substr(0, end);
    struct stat item {};
    if (lstat(way.c_str(), &item) != 0) {
      return std::nullopt;
    }
    if (isSomebodyElses(item)) {
      return way;
    }
  }
  return std::nullopt;
}

}  // namespace

bool isItsOwnersAlone(std::uint32_t permissions) { return (permissions & kWritableByOthers) == 0; }

bool isRootsAlone(std::uint32_t owner, std::uint32_t permissions) {
  return owner == 0 && isItsOwnersAlone(permissions);
}

bool isRootsAlone(const std::string& path) {
  const Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  return folder.isOpen() && fstat(folder.number(), &status) == 0 && isRootsAlone(status.st_uid, status.st_mode);
}

std::optional<std::string> firstOfSomebodyElse(const std::string& path) {
  if (auto found = firstOfSomebodyElseAsWritten(path)) {
    return found;
  }
  // Where root's links lead.
  const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr), &std::free);
  return real ? firstOfSomebodyElseAsWritten(real.get()) : std::nullopt;
}

Status takeOver(const std::string& path, const FileAttributes& attributes) {
  const Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  return folder.isOpen() && open_files::setAttributes(folder.number(), attributes) == 0
             ? Status()
             : Status(fileError(errno, Access::Write, path));
}

}  // namespace foundation::trusted_folder
