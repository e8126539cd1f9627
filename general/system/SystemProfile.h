#pragma once

#include <array>
#include <cstddef>

namespace platform {

/// When the system booted, in whole seconds since 1970; -1.0 when the system does not say. Equal in every process of
/// one boot, also when the wall clock is set meanwhile.
[[nodiscard]] double systemBootTime();

using ProfileData = std::array<std::byte, 16>;

// What the two ends of a connection show each other: equal in every process of one boot, different after the next.
[[nodiscard]] ProfileData systemProfileData();
[[nodiscard]] ProfileData clientProfileData();

}  // namespace platform
