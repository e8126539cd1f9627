#pragma once

#include <cstdint>
#include <optional>

namespace platform {

/// What systemBootTime() reports, in whole seconds. Nothing, with errno set, when the system does not say.
[[nodiscard]] std::optional<std::int64_t> bootSeconds();

}  // namespace platform
