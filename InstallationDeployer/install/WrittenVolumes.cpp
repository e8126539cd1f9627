#include "InstallationDeployer/install/WrittenVolumes.h"

#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"

namespace deployer {

using foundation::Status;
namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

// The item may be gone again by now; its folder lies on the same file system.
Status flushAtOrAbove(std::string path) {
  Status flushed = files::flushFileSystem(path);
  while (!flushed && flushed.error().isNoSuchFile() && path.size() > 1) {
    path = paths::deleteLastComponent(path);
    flushed = files::flushFileSystem(path);
  }
  return flushed;
}

}  // namespace

void WrittenVolumes::note(const std::string& path) {
  const auto attributes = files::attributesOfItem(path);
  if (attributes) {
    // A link itself lies on its folder's file system, what it leads to may not.
    pathsByDevice_.try_emplace(attributes->device, attributes->isDirectory() ? path : paths::deleteLastComponent(path));
  }
}

Status WrittenVolumes::flush() {
  while (!pathsByDevice_.empty()) {
    if (auto flushed = flushAtOrAbove(pathsByDevice_.begin()->second); !flushed) {
      return flushed;
    }
    pathsByDevice_.erase(pathsByDevice_.begin());
  }
  return {};
}

}  // namespace deployer
