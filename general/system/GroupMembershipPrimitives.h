#pragma once

#include <cstdint>
#include <string>

namespace platform {

/// Whether the user belongs to a group, as primary or further group. False when either is unknown.
[[nodiscard]] bool isMemberOfGroup(std::uint32_t userId, const std::string& group);

}  // namespace platform
