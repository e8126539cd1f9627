#include "InstallationDeployer/RestrictedPaths.h"

namespace deployer {

const std::set<std::string, std::less<>>& restrictedPaths() {
  static const std::set<std::string, std::less<>> kRestrictedPaths = {
      "/",
      "/Applications",
      "/Library",
      "/Network",
      "/System",
      "/Users",
      "/Volumes",
      "/bin",
      "/cores",
      "/dev",
      "/etc",
      "/home",
      "/mach_kernel",
      "/net",
      "/opt",
      "/private",
      "/sbin",
      "/tmp",
      "/usr",
      "/usr/bin",
      "/usr/lib",
      "/usr/libexec",
      "/usr/sbin",
      "/usr/share",
      "/usr/share/man",
      "/usr/share/man/man1",
      "/var",
      "/Library/Frameworks",
      "/Library/Caches",
      "/Library/Application Support",
      "/Library/LaunchDaemons",
      "/Library/LaunchAgents",
      "/Library/Preferences",
      "/System/Library",
      "/System/Library/CoreServices",
      "/System/Library/Frameworks",
      "/System/Library/LaunchDaemons",
      "/System/Library/LaunchAgents",
  };
  return kRestrictedPaths;
}

bool isRestricted(std::string_view path) { return restrictedPaths().contains(path); }

}  // namespace deployer
