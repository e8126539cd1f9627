#pragma once

#include <optional>

#include "general/foundation/Descriptor.h"

namespace foundation {

/// The two ends of a pipe. Neither outlives an exec, and neither has the number of a standard descriptor, so that a
/// child may put one in the place of any of them.
struct Pipe {
  Descriptor readEnd;
  Descriptor writeEnd;
};

/// @return nothing when the system has no descriptors left; errno says why.
[[nodiscard]] std::optional<Pipe> makePipe();

/// Makes reads or writes of this end return at once. False when the system refuses.
[[nodiscard]] bool setNonBlocking(const Descriptor& end);

}  // namespace foundation
