#pragma once

#include <chrono>
#include <optional>
#include <string_view>
#include <utility>

#include "general/foundation/Descriptor.h"

namespace ipc {

/// Held by one of root's processes on this machine at a time, under a name in the folder where processes meet. It ends
/// with the object or the process, however that ends. Use from one thread.
class NamedLock {
 public:
  /// Waits until the lock is free. Nothing, and an error in the log, when the folder cannot be used.
  /// @param name a single path component that begins with a dot.
  /// @param patience how long to wait for another process at most, which is an error as well; nothing: for ever.
  [[nodiscard]] static std::optional<NamedLock> acquire(
      std::string_view name, std::optional<std::chrono::milliseconds> patience = std::nullopt);

 private:
  explicit NamedLock(foundation::Descriptor file) : file_(std::move(file)) {}
  foundation::Descriptor file_;
};

}  // namespace ipc
