#include "general/foundation/execution/Pipe.h"

#include <fcntl.h>

#include "general/foundation/execution/ProcessPrimitives.h"

namespace foundation {

namespace {

constexpr int kFirstOrdinaryDescriptor = 3;

Descriptor awayFromStandardNumbers(Descriptor descriptor) {
  if (descriptor.number() >= kFirstOrdinaryDescriptor) {
    return descriptor;
  }
  return Descriptor(fcntl(descriptor.number(), F_DUPFD_CLOEXEC, kFirstOrdinaryDescriptor));
}

}  // namespace

std::optional<Pipe> makePipe() {
  int ends[2] = {-1, -1};
  if (!primitives::openPipe(ends)) {
    return std::nullopt;
  }
  Descriptor readEnd(ends[0]);
  Descriptor writeEnd(ends[1]);
  Pipe pipe{awayFromStandardNumbers(std::move(readEnd)), awayFromStandardNumbers(std::move(writeEnd))};
  if (!pipe.readEnd.isOpen() || !pipe.writeEnd.isOpen()) {
    return std::nullopt;
  }
  return pipe;
}

bool setNonBlocking(const Descriptor& end) {
  const int flags = fcntl(end.number(), F_GETFL);
  return flags >= 0 && fcntl(end.number(), F_SETFL, flags | O_NONBLOCK) == 0;
}

}  // namespace foundation
