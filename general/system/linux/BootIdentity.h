#pragma once

#include <cstdint>
#include <string_view>

namespace platform {

/// A number of whole seconds since 1970 that stands for a boot, made from the boot's random identity.
[[nodiscard]] std::int64_t secondsForBootIdentity(std::string_view identity);

}  // namespace platform
