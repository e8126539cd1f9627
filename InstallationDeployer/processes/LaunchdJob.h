#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "general/system/LoginWindow.h"

/// How launchd is spoken to.
namespace deployer::launchd {

inline constexpr std::string_view kLaunchctlPath = "/bin/launchctl";

/// Where a job of this label is described. A label from a manifest must not lead out of the folder; nothing when it
/// does.
[[nodiscard]] std::optional<std::string> plistPath(std::string_view folder, const std::string& label);

/// The session of the user who is logged in, which agents live in.
struct Session {
  std::uint32_t userId = 0;
  std::int32_t loginWindowPID = 0;  ///< of the process through which the session is reached
};
using LoginWindowLookup = std::function<std::optional<platform::LoginWindow>()>;
/// The session of a user and a login window that were looked up. A 0 means that nobody is logged in, or that looking
/// failed: then it is looked again. Nothing, and a notice in the log, when nobody is; where that cannot be found out,
/// an error says so as well.
[[nodiscard]] std::optional<Session> sessionOf(std::uint32_t userId, std::int32_t loginWindowPID,
                                               const LoginWindowLookup& lookAgain = platform::currentLoginWindow);

/// The arguments that make launchctl carry out others in a session, as its user.
[[nodiscard]] std::vector<std::string> argumentsInSession(const Session& session,
                                                          const std::vector<std::string>& arguments);

}  // namespace deployer::launchd
