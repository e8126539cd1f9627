#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "general/system/ProcessRecord.h"

namespace platform {

/// A login window: the process through which a logged-in user's session is reached. Both 0 when there is none.
struct LoginWindow {
  std::uint32_t userId = 0;
  std::int32_t processId = 0;
};

/// The login window of the console's user: the first in the list that belongs to that user. Without a console user, the
/// one with the greatest process id. Root's is the login screen and never chosen.
[[nodiscard]] LoginWindow chooseLoginWindow(std::span<const ProcessRecord> records,
                                            std::optional<std::uint32_t> consoleUserId);

/// The same for the running system; nothing, with errno set, when there is no list of processes to be had.
[[nodiscard]] std::optional<LoginWindow> currentLoginWindow();

/// Its parts, each from a snapshot of its own; 0 when there is none or no list to be had.
[[nodiscard]] std::uint32_t loginWindowUserId();
[[nodiscard]] std::int32_t loginWindowProcessId();

}  // namespace platform
