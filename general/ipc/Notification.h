#pragma once

#include <string>

#include "general/foundation/propertylist/PropertyList.h"

namespace ipc {

/// What one process tells the others.
struct Notification {
  std::string name;
  std::string object;                 ///< whom it is about
  foundation::PropertyList userInfo;  ///< a dictionary, or nil

  /// For log lines: `{name = N; object = O; userInfo = {...}}`.
  [[nodiscard]] std::string description() const;
};

}  // namespace ipc
