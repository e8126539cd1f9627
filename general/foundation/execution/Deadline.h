#pragma once

#include <chrono>

namespace foundation {

/// How long poll() may wait for this moment, in milliseconds: rounded up, so that 0 means that the moment has come, and
/// cut to what poll() takes, so that after a wait the moment may still be to come. Use from any thread.
[[nodiscard]] int millisecondsUntil(std::chrono::steady_clock::time_point deadline);

}  // namespace foundation
