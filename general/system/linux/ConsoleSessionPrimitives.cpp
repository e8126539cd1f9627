#include "general/system/ConsoleSessionPrimitives.h"

#include "general/system/linux/LoginSessions.h"

namespace platform {

std::optional<std::uint32_t> consoleSessionUserId() { return activeSeatUserId("/run/systemd"); }

}  // namespace platform
