#pragma once

#include <cstddef>
#include <span>

namespace foundation {

/// Fills the memory from the system's own source of randomness; ends the process when there is none, for nothing is
/// safe then. May be called from any thread.
void fillWithRandomBytes(std::span<std::byte> memory);

}  // namespace foundation
