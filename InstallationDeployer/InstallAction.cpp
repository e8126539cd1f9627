#include "InstallationDeployer/InstallAction.h"

#include <string_view>
#include <utility>

#include "InstallationDeployer/BundleLayout.h"
#include "general/foundation/Paths.h"
#include "general/foundation/propertylist/TextFormat.h"

namespace deployer {

using Kind = InstallAction::Kind;
namespace paths = foundation::paths;

namespace {

template <class... Arguments>
InstallAction refuse(const FileEntry& entry, std::string_view text, const Arguments&... arguments) {
  return {.kind = Kind::Refuse, .entry = entry, .refusal = foundation::format(text, arguments...)};
}

}  // namespace

InstallAction InstallRules::decide(const FileEntry& entry) const {
  if (entry.isSymbolicLink()) {
    return {.kind = Kind::Link, .entry = entry};
  }
  if (keepsModifiableFiles && entry.isModifiable() && !modifiableFilesToWrite.contains(entry.path().value_or(""))) {
    return {.kind = Kind::Keep, .entry = entry};
  }
  return decideCopy(entry);
}

InstallAction InstallRules::decideCopy(const FileEntry& entry) const {
  const auto path = entry.path();
  if (!path || !isUsablePath(*path)) {
    return refuse(entry, "A file of component %@ has no usable path: %@", component, path);
  }
  std::string place = paths::append(destination, *path);
  if (skipsSystemFolder && liesInSystemFolder(place)) {
    return {.kind = Kind::Skip, .entry = entry};
  }
  return entry.isDirectory() ? decideDirectory(entry, std::move(place)) : decideFile(entry, std::move(place));
}

InstallAction InstallRules::decideDirectory(const FileEntry& entry, std::string path) const {
  const auto external = entry.externalSource();
  if (!external) {
    return {.kind = Kind::Directory, .entry = entry, .destination = std::move(path)};
  }
  std::string content = paths::resolve(source, *external);
  if (entry.isRoot()) {
    return refuse(entry, "The root of component %@ cannot be emptied for %@", component, content);
  }
  const bool isOutside = liesOutside(content);
  return {.kind = Kind::ExternalDirectory,
          .entry = entry,
          .destination = std::move(path),
          .source = std::move(content),
          .isOutside = isOutside};
}

bool InstallRules::liesOutside(const std::string& path) const {
  std::string_view bundle = source;
  if (bundle.ends_with(kQVNPayloadRootPath)) {
    bundle.remove_suffix(kQVNPayloadRootPath.size() + 1);
  }
  return !path.starts_with(std::string(bundle) + "/");
}

InstallAction InstallRules::decideFile(const FileEntry& entry, std::string path) const {
  constexpr std::string_view kNoSource = "path doesn't exist at %@";
  const bool isFlushed = owedFiles.contains(entry.path().value_or(""));
  if (const auto external = entry.externalSource()) {
    std::string content = paths::resolve(source, *external);
    const bool isOutside = liesOutside(content);
    return {.kind = Kind::ExternalFile,
            .entry = entry,
            .destination = std::move(path),
            .source = std::move(content),
            .isOutside = isOutside,
            .isFlushed = isFlushed};
  }
  const auto checksum = entry.checksum();
  if (!checksum) {
    return refuse(entry, kNoSource, checksum);
  }
  std::string payload = paths::append(paths::append(source, component), *checksum);
  if (!paths::isSingleComponent(*checksum)) {
    return refuse(entry, kNoSource, payload);
  }
  return {.kind = Kind::PayloadFile,
          .entry = entry,
          .destination = std::move(path),
          .source = std::move(payload),
          .isFlushed = isFlushed};
}

}  // namespace deployer
