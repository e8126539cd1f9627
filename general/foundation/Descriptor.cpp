#include "general/foundation/Descriptor.h"

#include <cerrno>

namespace foundation {

int writeAll(int descriptor, std::span<const std::byte> content) {
  while (!content.empty()) {
    const ssize_t count = write(descriptor, content.data(), content.size());
    if (count >= 0) {
      content = content.subspan(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return -1;
    }
  }
  return 0;
}

}  // namespace foundation
