#include "InstallationDeployer/EntryPath.h"

#include <algorithm>

#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/Paths.h"

namespace deployer {

namespace paths = foundation::paths;

bool isUsablePath(std::string_view path) {
  if (path == "/") {
    return true;
  }
  // An entry that names no place below the root must not end up as the root itself, nor beside it.
  bool named = false;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view component = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    if (component.empty() || component == ".") {
      continue;
    }
    if (!paths::isSingleComponent(component)) {
      return false;
    }
    named = true;
  }
  return named;
}

std::optional<std::string> installedPathOf(const foundation::PropertyList& entry) {
  const auto path = entry[kManifestFilePath].string();
  if (!path || !paths::isAbsolute(*path) || !isUsablePath(*path)) {
    return std::nullopt;
  }
  return paths::standardize(*path);
}

}  // namespace deployer
