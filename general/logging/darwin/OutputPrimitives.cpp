#include "general/logging/OutputPrimitives.h"

#include <sys/socket.h>
#include <sys/stat.h>

namespace logging::primitives {

OutputKind kindOfOutput(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) {
    return OutputKind::NeverWaits;
  }
  if (S_ISSOCK(status.st_mode)) {
    return OutputKind::WritesWithoutWaiting;
  }
  return S_ISCHR(status.st_mode) || S_ISFIFO(status.st_mode) ? OutputKind::Waits : OutputKind::NeverWaits;
}

std::optional<ssize_t> writeWithoutWaiting(int descriptor, std::string_view bytes) {
  // A peer that is gone is an error as for every other output: the engine ignores the signal.
  return send(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT);
}

}  // namespace logging::primitives
