#pragma once

namespace support {

/// Lets one allocation by operator new of this thread fail with std::bad_alloc, while it lives: the `number`-th,
/// from 1. Linking it replaces operator new in the whole program. One at a time on each thread.
class NoMemory {
 public:
  explicit NoMemory(unsigned long number);
  ~NoMemory();
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;

  /// Whether so many were made, and the last of them failed.
  [[nodiscard]] static bool wasReached();
};

}  // namespace support
