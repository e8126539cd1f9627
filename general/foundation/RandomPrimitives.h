#pragma once

#include <cstddef>
#include <span>

namespace foundation {

/// Fills the memory from the system's own source of randomness. Throws std::runtime_error when there is none: names
/// that others can guess are not safe. May be called from any thread.
void fillWithRandomBytes(std::span<std::byte> memory);

}  // namespace foundation
