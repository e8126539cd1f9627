#include "InstallationDeployer/processes/LaunchdJob.h"

#include "InstallationDeployer/BundleLayout.h"
#include "general/foundation/Paths.h"
#include "general/foundation/TextFormat.h"

namespace deployer::launchd {

namespace paths = foundation::paths;

std::optional<std::string> plistPath(std::string_view folder, const std::string& label) {
  const std::string name = paths::appendExtension(label, kQVNManifestExtension);
  if (!paths::isSingleComponent(label) || !paths::isSingleComponent(name)) {
    return std::nullopt;
  }
  return paths::append(folder, name);
}

std::vector<std::string> argumentsInSession(std::uint32_t userId, std::int32_t loginWindowPID,
                                            const std::vector<std::string>& arguments) {
  std::vector<std::string> all{"bsexec", foundation::format("%d", loginWindowPID), "sudo",
                               "-u",     foundation::format("#%d", userId),        std::string(kLaunchctlPath)};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return all;
}

}  // namespace deployer::launchd
