#pragma once

#include <sys/types.h>

#include <optional>
#include <string_view>

/// Writing to what may be a pipe that nobody reads. For LineOutput.
namespace logging::primitives {

/// NeverWaits: files, and what is not open. WritesWithoutWaiting: may be full, and can be written to without waiting.
/// Waits: may be full, and then a write waits.
enum class OutputKind { NeverWaits, WritesWithoutWaiting, Waits };
[[nodiscard]] OutputKind kindOfOutput(int descriptor);

/// As write(), but never waits, whatever others have set for the open file. Nothing when this system or this kind of
/// file offers no such thing.
[[nodiscard]] std::optional<ssize_t> writeWithoutWaiting(int descriptor, std::string_view bytes);

}  // namespace logging::primitives
