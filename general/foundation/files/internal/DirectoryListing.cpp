#include "general/foundation/files/internal/DirectoryListing.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <memory>
#include <string_view>

#include "general/foundation/Descriptor.h"

namespace foundation {

int listDirectory(int directory, std::vector<std::string>& names) {
  // A description of its own: the stream closes it and moves its position.
  Descriptor own(openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!own.isOpen()) {
    return -1;
  }
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(fdopendir(own.number()), &closedir);
  if (!stream) {
    return -1;
  }
  static_cast<void>(own.release());
  while (true) {
    errno = 0;
    const dirent* const entry = readdir(stream.get());
    if (entry == nullptr) {
      return errno == 0 ? 0 : -1;
    }
    const std::string_view name(entry->d_name);
    if (name != "." && name != "..") {
      names.emplace_back(name);
    }
  }
}

}  // namespace foundation
