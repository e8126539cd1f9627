#pragma once

#include <cstddef>
#include <functional>
#include <span>

namespace foundation::files {

/// Called with each piece of a file as it is read, while the piece is still in the processor's cache.
using PieceVisitor = std::function<void(std::span<const std::byte>)>;

}  // namespace foundation::files
