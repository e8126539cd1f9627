#include "general/ipc/NamedLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/types.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>

#include "general/foundation/Paths.h"
#include "general/ipc/ServiceFolder.h"
#include "general/logging/SystemLog.h"

namespace ipc {

using foundation::Descriptor;

namespace {

constexpr mode_t kLockMode = 0600;
constexpr std::chrono::milliseconds kPauseBetweenAttempts(5);

/// As flock() for an exclusive lock, but not interrupted, and ended with ETIMEDOUT when the patience is at its end.
int lock(int file, std::optional<std::chrono::milliseconds> patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience.value_or(std::chrono::milliseconds(0));
  for (;;) {
    if (flock(file, patience ? LOCK_EX | LOCK_NB : LOCK_EX) == 0) {
      return 0;
    }
    if (errno == EWOULDBLOCK && std::chrono::steady_clock::now() >= deadline) {
      errno = ETIMEDOUT;
    } else if (errno == EWOULDBLOCK) {
      std::this_thread::sleep_for(kPauseBetweenAttempts);
      continue;
    }
    if (errno != EINTR) {
      return -1;
    }
  }
}

std::string reasonFor(int number) {
  return number == ETIMEDOUT ? "Another process does not let go of it." : std::strerror(number);
}

}  // namespace

std::optional<NamedLock> NamedLock::acquire(std::string_view name, std::optional<std::chrono::milliseconds> patience) {
  if (!makeServiceFolders()) {
    return std::nullopt;
  }
  const std::string path = foundation::paths::append(std::string(kServiceFolder), std::string(name));
  Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kLockMode));
  if (!file.isOpen() || lock(file.number(), patience) != 0) {
    const int number = errno;
    logging::error("Unable to lock %@. %s", path, reasonFor(number));
    return std::nullopt;
  }
  return NamedLock(std::move(file));
}

}  // namespace ipc
