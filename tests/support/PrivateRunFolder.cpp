#include "tests/support/PrivateRunFolder.h"

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace tests {

namespace {

std::string failure(const std::string& action) { return action + ": " + std::system_category().message(errno); }

}  // namespace

std::optional<std::string> enterPrivateRunFolder() {
  if (unshare(CLONE_NEWNS) != 0) {
    return failure("making a mount namespace");
  }
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    return failure("making mounts private");
  }
  const std::string folder = std::filesystem::canonical("/var/run");
  if (mount("private-run", folder.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0) {
    return failure("mounting on " + folder);
  }
  return std::nullopt;
}

}  // namespace tests
