#include "general/foundation/files/ItemExtras.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "general/foundation/Descriptor.h"
#include "general/foundation/files/internal/FilePrimitives.h"

namespace foundation::files {

namespace {

constexpr std::int64_t kBytesPerBlock = 512;

std::vector<std::string> extendedAttributes(const std::string& path) {
  const ssize_t room = file_primitives::listExtendedAttributes(path.c_str(), nullptr, 0);
  std::string list(room > 0 ? static_cast<std::size_t>(room) : 0, '\0');
  const ssize_t length =
      list.empty() ? 0 : file_primitives::listExtendedAttributes(path.c_str(), list.data(), list.size());
  list.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  std::vector<std::string> names;
  for (std::size_t start = 0; start < list.size(); start += names.back().size() + 1) {
    names.emplace_back(list.c_str() + start);
  }
  return names;
}

// Compressed files take little room as well, and have no holes.
bool hasHoles(const std::string& path, const struct stat& status) {
  if (!S_ISREG(status.st_mode) || std::int64_t{status.st_blocks} * kBytesPerBlock >= std::int64_t{status.st_size}) {
    return false;
  }
  const Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  const off_t hole = file.isOpen() ? lseek(file.number(), 0, SEEK_HOLE) : -1;
  return hole >= 0 && hole < status.st_size;
}

}  // namespace

ItemExtras extrasOfItem(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    return {};
  }
  return {S_ISDIR(status.st_mode) ? 1 : std::uint64_t{status.st_nlink}, extendedAttributes(path),
          hasHoles(path, status)};
}

}  // namespace foundation::files
