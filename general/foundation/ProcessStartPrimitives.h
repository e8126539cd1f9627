#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

namespace foundation {

/// When a process was started, in a unit of the system's own that only tells processes apart which had the same number
/// one after the other. Nothing for a process that is not there, or when the system does not say. May be called from
/// any thread.
[[nodiscard]] std::optional<std::uint64_t> startOfProcess(pid_t process);

}  // namespace foundation
