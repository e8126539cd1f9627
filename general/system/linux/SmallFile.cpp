#include "general/system/linux/SmallFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "general/foundation/Descriptor.h"

namespace platform {

std::optional<std::string> readSmallFile(const std::string& path, std::size_t limit) {
  // Non-blocking, because opening a FIFO would wait for its writer.
  const foundation::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat facts {};
  if (!file.isOpen() || fstat(file.number(), &facts) != 0) {
    return std::nullopt;
  }
  if (!S_ISREG(facts.st_mode)) {
    errno = EINVAL;
    return std::nullopt;
  }
  std::string content(limit + 1, '\0');
  std::size_t length = 0;
  while (length < content.size()) {
    const ssize_t count = read(file.number(), content.data() + length, content.size() - length);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      return std::nullopt;
    }
    if (count == 0) {
      content.resize(length);
      return content;
    }
    length += static_cast<std::size_t>(count);
  }
  errno = EFBIG;
  return std::nullopt;
}

}  // namespace platform
