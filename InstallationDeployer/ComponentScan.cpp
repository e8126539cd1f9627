#include "InstallationDeployer/ComponentScan.h"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "InstallationDeployer/RestrictedPaths.h"
#include "general/foundation/Paths.h"
#include "general/foundation/SHA256.h"
#include "general/foundation/extensions/NSDictionaryExtensions.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::FileType;
using foundation::ItemStatus;
using foundation::PropertyList;
namespace paths = foundation::paths;
namespace files = foundation::files;

namespace {

// "/", "Library", the folder, the file's name: what lies deeper is no service.
constexpr std::size_t kComponentsOfServicePath = 4;

std::unordered_set<std::string> setOf(const PropertyList& list) {
  std::vector<std::string> texts = list.strings();
  return {std::make_move_iterator(texts.begin()), std::make_move_iterator(texts.end())};
}

std::optional<std::unordered_set<std::string>> labelsOf(const PropertyList& list) {
  if (!list.isArray()) {
    return std::nullopt;
  }
  return setOf(list);
}

}  // namespace

const ComponentScan::ServiceKind ComponentScan::kDaemons{kQVNLaunchDaemonsPath, kManifestListOfLaunchDaemons, "daemon"};
const ComponentScan::ServiceKind ComponentScan::kAgents{kQVNLaunchAgentsPath, kManifestListOfLaunchAgents, "agent"};

bool ComponentScan::scan(const std::string& directory) {
  const auto attributes = files::attributesOfItem(directory);
  if (!attributes) {
    logging::error("Unable to aquire attributes of %@\n%@", directory, attributes.error());
    failed_ = true;
    return false;
  }
  addDirectory(directory, *attributes);
  readAuthoringPlist();
  const auto names = files::contentsOfDirectory(directory);
  if (names) {
    for (const std::string& name : *names) {
      if (!scanItem(paths::append(directory, name))) {
        return false;
      }
    }
  } else {
    logging::error("Error reading directory contents at %@\n%@", directory, names.error());
    failed_ = true;
  }
  if (directory == options_.rootDirectory) {
    mergeAuthoringPlist();
  }
  return true;
}

ComponentScan::EntryFields ComponentScan::entryFor(const std::string& installPath, const ItemStatus& attributes,
                                                   bool isDirectory) const {
  const bool isRoots = options_.recordsRootAsOwner;
  EntryFields fields;
  fields.reserve(8);
  fields.emplace_back(kFileOwnerAccountID, std::int64_t{isRoots ? 0 : attributes.owner});
  fields.emplace_back(kFileGroupOwnerAccountID, std::int64_t{isRoots ? 0 : attributes.group});
  fields.emplace_back(kFilePosixPermissions, std::int64_t{attributes.permissions});
  fields.emplace_back(kManifestIsDirectory, isDirectory);
  fields.emplace_back(kManifestIsSymbolicLink, attributes.isSymbolicLink());
  fields.emplace_back(kManifestFilePath, installPath);
  return fields;
}

void ComponentScan::addDirectory(const std::string& directory, const ItemStatus& attributes) {
  const std::string installPath = installPathOf(directory);
  if (restrictedPaths().contains(installPath)) {
    return;
  }
  EntryFields fields = entryFor(installPath, attributes, true);
  // A tree may be scanned through a link to its root; the link is no part of it.
  std::ranges::find(fields, kManifestIsSymbolicLink, &EntryFields::value_type::first)->second = false;
  manifest_.files.push_back(PropertyList::dictionary(std::move(fields)));
}

bool ComponentScan::scanItem(const std::string& path) {
  const auto attributes = files::attributesOfItem(path);
  if (!attributes) {
    logging::error("Unable to aquire attributes of %@\n%@", path, attributes.error());
    return true;
  }
  if (attributes->isDirectory()) {
    // A folder that fails has said so; what lies beside it is recorded all the same.
    static_cast<void>(scan(path));
    return true;
  }
  return addItem(path, *attributes);
}

bool ComponentScan::addItem(const std::string& path, const ItemStatus& attributes) {
  const std::string installPath = installPathOf(path);
  manifest_.size += static_cast<std::int64_t>(attributes.size);
  EntryFields fields = entryFor(installPath, attributes, false);
  if (attributes.isSymbolicLink()) {
    const auto target = files::destinationOfSymbolicLink(path);
    if (!target) {
      logging::error("Unable to aquire the link target for %@\n%@", path, target.error());
      failed_ = true;
      return false;
    }
    fields.emplace_back(kManifestSymbolicLinkTarget, *target);
  } else if (attributes.type == FileType::Regular) {
    fields.emplace_back(kManifestSHAChecksum, checksumOf(path));
    if (authoring_->modifiableFiles.contains(installPath)) {
      fields.emplace_back(kManifestIsModifiableFile, true);
    }
  }
  manifest_.files.push_back(PropertyList::dictionary(std::move(fields)));
  noteService(kDaemons, installPath, authoring_->daemons, manifest_.launchDaemons);
  noteService(kAgents, installPath, authoring_->agents, manifest_.launchAgents);
  return true;
}

void ComponentScan::noteService(const ServiceKind& kind, const std::string& installPath,
                                const std::optional<Labels>& fromPlist, PropertyList::Array& services) {
  if (!installPath.starts_with(kind.folder) || installPath.size() <= kind.folder.size() ||
      installPath[kind.folder.size()] != '/' || paths::components(installPath).size() != kComponentsOfServicePath) {
    return;
  }
  const std::string label = paths::deleteExtension(paths::lastComponent(installPath));
  if (!fromPlist) {
    services.emplace_back(label);
    logging::info("Added autogenerated %s %@ to %@", kind.noun, label, kind.key);
  } else if (!fromPlist->contains(label)) {
    logging::notice("Warning: plist %@ does not contain %@ %s found in component.", kind.key, label, kind.noun);
  }
}

void ComponentScan::readAuthoringPlist() {
  if (!options_.plistPath) {
    takeAuthoring({});
    return;
  }
  if (authoring_ && plists_.isCurrent(*options_.plistPath)) {
    return;
  }
  if (const auto content = plists_.read(*options_.plistPath)) {
    takeAuthoring(*content);
    return;
  }
  const auto attributes = files::attributesOfItem(*options_.plistPath);
  if (!attributes && !attributes.error().isNoSuchFile()) {
    logging::error("Failed to read %@. %@", *options_.plistPath, attributes.error());
  }
  takeAuthoring({});
}

void ComponentScan::takeAuthoring(const PropertyList& content) {
  authoring_ = {content, labelsOf(content[kManifestListOfLaunchDaemons]),
                labelsOf(content[kManifestListOfLaunchAgents]), setOf(content[kManifestListOfModifiableFiles])};
}

void ComponentScan::mergeAuthoringPlist() {
  mergeServices(kDaemons, manifest_.launchDaemons);
  mergeServices(kAgents, manifest_.launchAgents);
  mergeElements(kManifestListOfFiles, "Adding %ld files to component manifest from plist.", manifest_.files);
  mergeElements(kManifestListOfExecutables, "Adding %ld executables to component manifest from plist.",
                manifest_.executables);
  if (!authoring_->content[kManifestRebuildKextCache].isNil()) {
    manifest_.rebuildKextCache = authoring_->content[kManifestRebuildKextCache];
    const bool rebuild = foundation::NSDictionaryExtensions::boolForKey(authoring_->content, kManifestRebuildKextCache);
    logging::info("Set RebuildKextCache: %@ to component manifest from plist.", rebuild ? "YES" : "NO");
  }
}

void ComponentScan::mergeServices(const ServiceKind& kind, PropertyList::Array& services) {
  const PropertyList& list = authoring_->content[kind.key];
  if (list.elements().empty()) {
    return;
  }
  services.insert(services.end(), list.elements().begin(), list.elements().end());
  logging::info("Adding %@ to component manifest from plist. Added %s list:\n%@", kind.key, kind.noun, list);
}

void ComponentScan::mergeElements(std::string_view key, std::string_view message, PropertyList::Array& elements) {
  const auto added = authoring_->content[key].elements();
  if (added.empty()) {
    return;
  }
  elements.insert(elements.end(), added.begin(), added.end());
  logging::info(message, added.size());
}

std::string ComponentScan::installPathOf(const std::string& path) const {
  const std::string_view relative = std::string_view(path).substr(std::min(options_.rootDirectory.size(), path.size()));
  std::string installPath = paths::append(options_.rootPrefix, relative);
  return installPath.empty() ? "/" : installPath;
}

std::string ComponentScan::checksumOf(const std::string& path) {
  if (options_.checksumBlock) {
    return options_.checksumBlock(path);
  }
  foundation::SHA256 hash;
  const auto content = files::read(path, buffer_, [&hash](std::span<const std::byte> piece) { hash.update(piece); });
  return content ? QVNInstallerChecksum::textForDigest(hash.finish()) : QVNInstallerChecksum::generateSHA256({});
}

}  // namespace deployer
