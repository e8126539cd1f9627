#pragma once

#include <cstdint>

namespace foundation {

/// The space of a file system.
struct FileSystemAttributes {
  std::uint64_t freeBytes = 0;  ///< what an unprivileged writer may use
  std::uint64_t totalBytes = 0;
};

}  // namespace foundation
