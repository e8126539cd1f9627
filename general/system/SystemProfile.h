#pragma once

#include <array>
#include <cstddef>

namespace platform {

/// Which boot this is, as whole seconds since 1970; -1.0, and the system's error on standard error, when the system
/// does not say. Equal in every process of one boot, also when the wall clock is set meanwhile.
///
/// Use it to tell boots apart, not as a date: Linux keeps no boot time that stays when the clock is set, so there it is
/// a number made from the boot's random identity.
[[nodiscard]] double systemBootTime();

using ProfileData = std::array<std::byte, 16>;

// What the two ends of a connection show each other: equal in every process of one boot, different from each other.
[[nodiscard]] ProfileData systemProfileData();
[[nodiscard]] ProfileData clientProfileData();

/// The same two for a given boot time; they depend on its low byte.
[[nodiscard]] ProfileData systemProfileDataFor(double bootTime);
[[nodiscard]] ProfileData clientProfileDataFor(double bootTime);

}  // namespace platform
