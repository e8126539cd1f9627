#include "general/foundation/execution/Deadline.h"

#include <algorithm>
#include <limits>

namespace foundation {

int millisecondsUntil(std::chrono::steady_clock::time_point deadline) {
  const auto now = std::chrono::steady_clock::now();
  if (deadline <= now) {
    return 0;
  }
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
  return static_cast<int>(std::min<decltype(wait)>(wait, std::numeric_limits<int>::max()));
}

}  // namespace foundation
