#pragma once

#include <cstdint>
#include <optional>

namespace platform {

/// The id of the user whose session has the console (the display and keyboard of the machine); nothing when there is no
/// such session.
[[nodiscard]] std::optional<std::uint32_t> consoleSessionUserId();

}  // namespace platform
