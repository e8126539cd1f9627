#include "general/foundation/RandomPrimitives.h"

#include <sys/random.h>

#include <cerrno>
#include <cstdlib>

namespace foundation {

void fillWithRandomBytes(std::span<std::byte> memory) {
  while (!memory.empty()) {
    const ssize_t count = getrandom(memory.data(), memory.size(), 0);
    if (count > 0) {
      memory = memory.subspan(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      std::abort();
    }
  }
}

}  // namespace foundation
