#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// How launchd is spoken to.
namespace deployer::launchd {

inline constexpr std::string_view kLaunchctlPath = "/bin/launchctl";

/// Where a job of this label is described. A label from a manifest must not lead out of the folder; nothing when it
/// does.
[[nodiscard]] std::optional<std::string> plistPath(std::string_view folder, const std::string& label);

/// The arguments that make launchctl carry out others in the session of a logged-in user.
[[nodiscard]] std::vector<std::string> argumentsInSession(std::uint32_t userId, std::int32_t loginWindowPID,
                                                          const std::vector<std::string>& arguments);

}  // namespace deployer::launchd
