#include "general/logging/OutputPrimitives.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

namespace logging::primitives {

namespace {

constexpr int kNoWait = 8;
constexpr long kAtTheEnd = -1;

}  // namespace

OutputKind kindOfOutput(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) {
    return OutputKind::NeverWaits;
  }
  if (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode)) {
    return OutputKind::WritesWithoutWaiting;
  }
  return S_ISCHR(status.st_mode) ? OutputKind::Waits : OutputKind::NeverWaits;
}

std::optional<ssize_t> writeWithoutWaiting(int descriptor, std::string_view bytes) {
  ssize_t written = send(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (written >= 0 || errno != ENOTSOCK) {
    return written;
  }
  // The call itself, not the C library's function: that one is newer than some of the libraries the engine meets.
  const iovec piece{const_cast<char*>(bytes.data()), bytes.size()};
  written = syscall(SYS_pwritev2, descriptor, &piece, 1L, kAtTheEnd, kAtTheEnd, kNoWait);
  if (written < 0 && (errno == EOPNOTSUPP || errno == ENOSYS)) {
    return std::nullopt;
  }
  return written;
}

}  // namespace logging::primitives
