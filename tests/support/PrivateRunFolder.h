#pragma once

#include <optional>
#include <string>

namespace tests {

/// Gives the calling thread an empty /var/run of its own, and with it every thread and process that it starts from now
/// on; all else of the host stays in sight. It is gone with the last of them.
/// @return why that is impossible here, for GTEST_SKIP; nothing when it is done.
[[nodiscard]] std::optional<std::string> enterPrivateRunFolder();

}  // namespace tests
