#include "general/foundation/FileDescriptors.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace foundation::descriptors {

int writeAll(int file, std::span<const std::byte> content) {
  while (!content.empty()) {
    const ssize_t count = write(file, content.data(), content.size());
    if (count >= 0) {
      content = content.subspan(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return -1;
    }
  }
  return 0;
}

int copyAll(int from, int to) {
  constexpr std::size_t kPieceBytes = 65536;
  std::array<std::byte, kPieceBytes> piece;
  off_t position = 0;
  while (true) {
    const ssize_t count = pread(from, piece.data(), piece.size(), position);
    if (count == 0) {
      return 0;
    }
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      return -1;
    }
    if (writeAll(to, std::span(piece).first(static_cast<std::size_t>(count))) != 0) {
      return -1;
    }
    position += count;
  }
}

int setAttributes(int file, const FileAttributes& attributes) {
  if (attributes.owner == kNobodyAtAll || attributes.group == kNobodyAtAll) {
    errno = EINVAL;
    return -1;
  }
  if ((attributes.owner || attributes.group) &&
      fchown(file, attributes.owner.value_or(kNobodyAtAll), attributes.group.value_or(kNobodyAtAll)) != 0) {
    return -1;
  }
  return attributes.permissions ? fchmod(file, static_cast<mode_t>(*attributes.permissions)) : 0;
}

}  // namespace foundation::descriptors
