#pragma once

#include <cstddef>
#include <string>

#include "general/foundation/propertylist/PropertyList.h"

namespace ipc {

/// Of a distributed notification's message, in bytes. It fits into what the system keeps for a connection, so that a
/// poster never waits for a reader.
inline constexpr std::size_t kLargestNotification = std::size_t{64} * 1024;

/// What one process tells the others.
struct Notification {
  std::string name;
  std::string object;                 ///< whom it is about
  foundation::PropertyList userInfo;  ///< a dictionary, or nil

  /// For log lines: `{name = N; object = O; userInfo = {...}}`.
  [[nodiscard]] std::string description() const;
};

}  // namespace ipc
