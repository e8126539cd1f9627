#include "general/ipc/ProcessLock.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "general/foundation/Paths.h"
#include "general/ipc/ServiceFolder.h"
#include "general/logging/SystemLog.h"

namespace ipc {

namespace {

constexpr mode_t kLockMode = 0600;

struct flock wholeFile() {
  struct flock region {};
  region.l_type = F_WRLCK;
  region.l_whence = SEEK_SET;
  return region;
}

}  // namespace

ProcessLock::ProcessLock(std::string_view name)
    : path_(foundation::paths::append(std::string(kServiceFolder), std::string(name))) {}

ProcessLock::Attempt ProcessLock::tryToLock() {
  holder_ = kGone;
  if (!openFile()) {
    return Attempt::Failed;
  }
  struct flock wanted = wholeFile();
  int locked = -1;
  while ((locked = fcntl(file_.number(), F_SETLK, &wanted)) != 0 && errno == EINTR) {
  }
  if (locked == 0) {
    return Attempt::Locked;
  }
  if (errno != EAGAIN && errno != EACCES) {
    return fail();
  }
  struct flock held = wholeFile();
  if (fcntl(file_.number(), F_GETLK, &held) != 0) {
    return fail();
  }
  if (held.l_type != F_UNLCK) {
    holder_ = held.l_pid > 0 ? static_cast<int>(held.l_pid) : kUnseen;
  }
  return Attempt::HeldByOther;
}

bool ProcessLock::openFile() {
  if (file_.isOpen()) {
    return true;
  }
  if (!makeServiceFolders()) {
    return false;
  }
  file_ = foundation::Descriptor(open(path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kLockMode));
  if (!file_.isOpen()) {
    static_cast<void>(fail());
  }
  return file_.isOpen();
}

ProcessLock::Attempt ProcessLock::fail() const {
  const int number = errno;
  logging::error("Unable to lock %@. %s", path_, std::strerror(number));
  return Attempt::Failed;
}

}  // namespace ipc
