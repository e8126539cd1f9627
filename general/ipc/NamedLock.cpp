#include "general/ipc/NamedLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/types.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "general/foundation/Paths.h"
#include "general/ipc/ServiceFolder.h"
#include "general/logging/SystemLog.h"

namespace ipc {

using foundation::Descriptor;

namespace {

constexpr mode_t kLockMode = 0600;

}  // namespace

std::optional<NamedLock> NamedLock::acquire(std::string_view name) {
  if (!makeServiceFolders()) {
    return std::nullopt;
  }
  const std::string path = foundation::paths::append(std::string(kServiceFolder), std::string(name));
  Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kLockMode));
  int locked = -1;
  while (file.isOpen() && (locked = flock(file.number(), LOCK_EX)) != 0 && errno == EINTR) {
  }
  if (locked != 0) {
    const int number = errno;
    logging::error("Unable to lock %@. %s", path, std::strerror(number));
    return std::nullopt;
  }
  return NamedLock(std::move(file));
}

}  // namespace ipc
