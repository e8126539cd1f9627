#include "general/foundation/files/internal/OpenFiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <span>

#include "general/foundation/Descriptor.h"

namespace foundation::open_files {

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

std::array<timespec, 2> timesFor(std::int64_t modificationNanoseconds) {
  constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
  std::int64_t seconds = modificationNanoseconds / kNanosecondsPerSecond;
  std::int64_t rest = modificationNanoseconds % kNanosecondsPerSecond;
  if (rest < 0) {
    rest += kNanosecondsPerSecond;
    --seconds;
  }
  timespec access{};
  access.tv_nsec = UTIME_OMIT;
  timespec modification{};
  modification.tv_sec = static_cast<time_t>(seconds);
  modification.tv_nsec = static_cast<decltype(modification.tv_nsec)>(rest);
  return {access, modification};
}

bool givesToNobody(const FileAttributes& attributes) {
  return attributes.owner == kNobodyAtAll || attributes.group == kNobodyAtAll;
}

int setAttributes(int file, const FileAttributes& attributes) {
  if (givesToNobody(attributes)) {
    errno = EINVAL;
    return -1;
  }
  if ((attributes.owner || attributes.group) &&
      fchown(file, attributes.owner.value_or(kNobodyAtAll), attributes.group.value_or(kNobodyAtAll)) != 0) {
    return -1;
  }
  if (attributes.permissions && fchmod(file, static_cast<mode_t>(*attributes.permissions)) != 0) {
    return -1;
  }
  return attributes.modificationNanoseconds ? futimens(file, timesFor(*attributes.modificationNanoseconds).data()) : 0;
}

}  // namespace foundation::open_files
