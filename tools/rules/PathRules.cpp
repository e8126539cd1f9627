#include "tools/rules/PathRules.h"

#include <algorithm>

#include "InstallationDeployer/BundleLayout.h"
#include "general/foundation/Paths.h"
#include "general/foundation/propertylist/TextFormat.h"

namespace bundletool {

namespace paths = foundation::paths;

namespace {

std::optional<std::string> faultOfLength(std::string_view path) {
  if (path.size() > kLongestPath) {
    return foundation::format("the path is longer than %u bytes", kLongestPath);
  }
  const auto parts = paths::components(path);
  if (std::ranges::any_of(parts, [](const std::string& part) { return part.size() > kLongestName; })) {
    return foundation::format("a name in the path is longer than %u bytes", kLongestName);
  }
  return std::nullopt;
}

std::optional<std::string> faultOfAnyPath(std::string_view path) {
  if (path.find('\0') != std::string_view::npos) {
    return "the path holds a NUL character";
  }
  if (paths::climbs(path)) {
    return "the path climbs with \"..\"";
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> faultOfInstallPath(std::string_view path) {
  if (!paths::isAbsolute(path)) {
    return "the path does not begin with a slash";
  }
  if (auto fault = faultOfAnyPath(path)) {
    return fault;
  }
  if (paths::standardize(path) != path) {
    return foundation::format("the path is not in its shortest form %@", paths::standardize(path));
  }
  return faultOfLength(path);
}

std::optional<std::string> faultOfSourcePath(std::string_view path) {
  if (path.empty()) {
    return "the path is empty";
  }
  return faultOfAnyPath(path);
}

std::optional<std::string> faultOfName(std::string_view name) {
  if (name.empty()) {
    return "the name is empty";
  }
  if (name.size() > kLongestName) {
    return foundation::format("the name is longer than %u bytes", kLongestName);
  }
  if (!paths::isSingleComponent(name)) {
    return "the name is no single path component";
  }
  return std::nullopt;
}

std::optional<std::string> faultOfComponentName(std::string_view name) {
  constexpr std::size_t kLongestComponentName = kLongestName - 1 - deployer::kQVNManifestExtension.size();
  if (auto fault = faultOfName(name)) {
    return fault;
  }
  if (name.size() > kLongestComponentName) {
    return foundation::format("the name is longer than %u bytes, so its manifest could have no name",
                              kLongestComponentName);
  }
  const std::string manifest = caseFolded(paths::appendExtension(name, deployer::kQVNManifestExtension));
  if (manifest == caseFolded(deployer::kQVNManifestIndexName)) {
    return foundation::format("its manifest would overwrite the index %@", deployer::kQVNManifestIndexName);
  }
  return std::nullopt;
}

std::optional<std::string> faultOfProductName(std::string_view name) {
  if (auto fault = faultOfName(name)) {
    return fault;
  }
  if (caseFolded(name) == deployer::kQVNInstallerTemporaryName) {
    return "the name is that of the installer's folder for things in the making";
  }
  return std::nullopt;
}

std::string caseFolded(std::string_view name) {
  std::string folded(name);
  std::ranges::transform(folded, folded.begin(), [](char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
  });
  return folded;
}

}  // namespace bundletool
