#pragma once

#include <string_view>

#include "general/logging/SystemLog.h"

namespace deployer {

/// Logs why an entry cannot be installed, and returns false to be returned by the caller.
template <class... Arguments>
bool logFailure(std::string_view text, const Arguments&... arguments) {
  logging::error(text, arguments...);
  return false;
}

}  // namespace deployer
