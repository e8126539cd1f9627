#include "general/foundation/RandomPrimitives.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "general/foundation/Descriptor.h"

namespace foundation {

namespace {

/// The same source under another door, for where the call is not allowed; its number of bytes, or -1 with errno set.
ssize_t readFromDevice(std::span<std::byte> memory) {
  const Descriptor device(open("/dev/urandom", O_RDONLY | O_CLOEXEC));
  return device.isOpen() ? read(device.number(), memory.data(), memory.size()) : -1;
}

}  // namespace

void fillWithRandomBytes(std::span<std::byte> memory) {
  while (!memory.empty()) {
    ssize_t count = getrandom(memory.data(), memory.size(), 0);
    if (count < 0 && errno != EINTR) {
      count = readFromDevice(memory);
    }
    if (count > 0) {
      memory = memory.subspan(static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      std::abort();
    }
  }
}

}  // namespace foundation
