#pragma once

#include <cstddef>
#include <functional>
#include <span>

namespace foundation::files {

/// Called with each piece of a file as it is read, while the piece is still in the processor's cache.
using PieceVisitor = std::function<void(std::span<const std::byte>)>;

/// The same for whoever needs no more than the piece at hand: whether to go on.
using PieceReader = std::function<bool(std::span<const std::byte>)>;

}  // namespace foundation::files
