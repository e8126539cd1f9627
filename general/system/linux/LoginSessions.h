#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

/// Whose session has seat0, as the login manager records it below a directory (/run/systemd on a running system). A
/// greeter's session is nobody's. Nothing when there is no record, or none that makes sense.
[[nodiscard]] std::optional<std::uint32_t> activeSeatUserId(const std::string& directory);

}  // namespace platform
