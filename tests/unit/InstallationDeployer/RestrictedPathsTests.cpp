#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>

#include "InstallationDeployer/QVNInstallerManifest.h"
#include "InstallationDeployer/RestrictedPaths.h"

namespace deployer {

TEST(RestrictedPaths, AreThirtyEightExactPaths) {
  const std::set<std::string, std::less<>> expected = {"/",
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
                                                       "/System/Library/LaunchAgents"};
  ASSERT_EQ(expected.size(), 38U);
  EXPECT_EQ(restrictedPaths(), expected);
}

TEST(RestrictedPaths, AreComparedAsTheyAreWritten) {
  const auto& restricted = restrictedPaths();
  for (const char* path :
       {"/Library/LaunchDaemons/", "/Library/Application Support/Corvane", "/usr/local", "", "bin"}) {
    EXPECT_FALSE(restricted.contains(path)) << path;
  }
}

TEST(RestrictedPaths, AreThoseThatTheManifestNames) {
  EXPECT_EQ(&QVNInstallerManifest::restrictedPaths(), &restrictedPaths());
}

TEST(RestrictedPaths, AreRestrictedAsTheyAreWrittenOnly) {
  for (const std::string& path : restrictedPaths()) {
    EXPECT_TRUE(isRestricted(path)) << path;
    EXPECT_FALSE(isRestricted(path + "/")) << path;
  }
  for (const char* path : {"", "usr", "//", "//usr/./bin", "/opt/../usr", "/usr/local", "/Library/Thing"}) {
    EXPECT_FALSE(isRestricted(path)) << path;
  }
}

}  // namespace deployer
