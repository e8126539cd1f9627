#include "general/logging/LogFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>

#include "general/foundation/Descriptor.h"

namespace logging {

using foundation::Descriptor;

namespace {

constexpr mode_t kMode = 0600;
constexpr int kFlags = O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
// Several processes may find the file full at the same moment.
constexpr int kMostAttempts = 4;

std::optional<struct stat> statusOf(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 ? std::optional(status) : std::nullopt;
}

/// Links and files of others could lead the log astray.
bool isOwnFile(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_uid == geteuid() && status.st_nlink <= 1;
}

bool isSameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

bool LogFile::isOpenAt(int descriptor) const {
  const auto status = statusOf(descriptor);
  struct stat present {};
  return status && isOwnFile(*status) && lstat(path_.c_str(), &present) == 0 && isSameFile(*status, present);
}

bool LogFile::makeRoom(int descriptor, std::size_t bytes) const {
  const auto status = statusOf(descriptor);
  if (!status || !S_ISREG(status->st_mode) || static_cast<std::size_t>(status->st_size) + bytes <= mostBytes_) {
    return true;
  }
  return giveWay(descriptor);
}

bool LogFile::giveWay(int descriptor) const {
  const auto full = statusOf(descriptor);
  if (!full || !isOwnFile(*full)) {
    return false;
  }
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    const Descriptor present(open(path_.c_str(), kFlags));
    const auto status = present.isOpen() ? statusOf(present.number()) : std::nullopt;
    if (status && isOwnFile(*status) && !isSameFile(*status, *full)) {
      return dup2(present.number(), descriptor) >= 0;
    }
    if (present.isOpen() && !(status && isOwnFile(*status))) {
      return false;
    }
    if (present.isOpen() && std::rename(path_.c_str(), (path_ + kEarlierLogSuffix).c_str()) != 0 && errno != ENOENT) {
      return false;
    }
    const Descriptor fresh(open(path_.c_str(), kFlags | O_CREAT | O_EXCL, kMode));
    if (fresh.isOpen()) {
      return dup2(fresh.number(), descriptor) >= 0;
    }
    if (errno != EEXIST) {
      return false;
    }
  }
  return false;
}

}  // namespace logging
