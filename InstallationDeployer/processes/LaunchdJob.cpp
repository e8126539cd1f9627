#include "InstallationDeployer/processes/LaunchdJob.h"

#include <cerrno>
#include <cstring>

#include "InstallationDeployer/BundleLayout.h"
#include "general/foundation/Paths.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/logging/SystemLog.h"

namespace deployer::launchd {

namespace paths = foundation::paths;

std::optional<std::string> plistPath(std::string_view folder, const std::string& label) {
  const std::string name = paths::appendExtension(label, kQVNManifestExtension);
  if (!paths::isSingleComponent(label) || !paths::isSingleComponent(name)) {
    return std::nullopt;
  }
  return paths::append(folder, name);
}

std::optional<Session> sessionOf(std::uint32_t userId, std::int32_t loginWindowPID,
                                 const LoginWindowLookup& lookAgain) {
  if (userId != 0 && loginWindowPID != 0) {
    return Session{userId, loginWindowPID};
  }
  const auto window = lookAgain();
  if (!window) {
    logging::error("Unable to look for the login window of the user at the console. Launch agents are left alone. %s",
                   std::strerror(errno));
  } else if (window->userId != 0 && window->processId != 0) {
    return Session{window->userId, window->processId};
  }
  // The same words for starting and stopping.
  logging::notice("Could not find user id (%d) or loginwindow pid (%d) to launch agents. Skipping launching agents.",
                  userId, loginWindowPID);
  return std::nullopt;
}

std::vector<std::string> argumentsInSession(const Session& session, const std::vector<std::string>& arguments) {
  std::vector<std::string> all{"bsexec", foundation::format("%d", session.loginWindowPID), "sudo",
                               "-u",     foundation::format("#%d", session.userId),        std::string(kLaunchctlPath)};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return all;
}

}  // namespace deployer::launchd
