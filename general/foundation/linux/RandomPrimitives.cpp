#include "general/foundation/RandomPrimitives.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "general/foundation/Descriptor.h"

namespace foundation {

namespace {

/// What the call leaves unfilled.
std::span<std::byte> fillByCall(std::span<std::byte> memory) {
  while (!memory.empty()) {
    const ssize_t count = getrandom(memory.data(), memory.size(), 0);
    if (count > 0) {
      memory = memory.subspan(static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      break;
    }
  }
  return memory;
}

/// What the device leaves unfilled.
std::span<std::byte> fillFromDevice(std::span<std::byte> memory) {
  const Descriptor device(open("/dev/urandom", O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  struct stat status {};
  if (!device.isOpen() || fstat(device.number(), &status) != 0 || !S_ISCHR(status.st_mode)) {
    return memory;
  }
  while (!memory.empty()) {
    const ssize_t count = read(device.number(), memory.data(), memory.size());
    if (count > 0) {
      memory = memory.subspan(static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      break;
    }
  }
  return memory;
}

}  // namespace

void fillWithRandomBytes(std::span<std::byte> memory) {
  memory = fillByCall(memory);
  if (!memory.empty() && !fillFromDevice(memory).empty()) {
    throw std::runtime_error("The system gives no random bytes.");
  }
}

}  // namespace foundation
