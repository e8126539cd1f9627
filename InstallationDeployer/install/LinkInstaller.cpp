#include "InstallationDeployer/install/LinkInstaller.h"

#include "InstallationDeployer/DefaultAttributes.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::FileAttributes;
namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

// Owner and group of a link are set whether the manifest gives them or not.
constexpr FileAttributes kMissingLinkAttributes{.owner = 0, .group = 0, .permissions = 0};

LinkOutcome makeLink(const FileEntry& entry, const std::string& path) {
  const auto target = entry.linkTarget();
  const FileAttributes attributes = withDefaults(entry.attributes(), kMissingLinkAttributes);
  const std::string text(target.value_or(""));
  LinkOutcome outcome = LinkOutcome::Made;
  auto created = files::createSymbolicLink(path, text, attributes);
  if (!created) {
    // Made and given attributes in one go: a link that cannot have them stays without.
    created = files::createSymbolicLink(path, text, {});
  }
  if (!created) {
    logging::error("Failed to create symbolic link: %@\n%@", target, created.error());
    outcome = LinkOutcome::Failed;
  }
  if (!files::setLinkAttributes(attributes, path)) {
    logging::error("Unable to set attributes on symbolic file: %@", path);
    outcome = LinkOutcome::Failed;
  }
  return outcome;
}

}  // namespace

LinkOutcome installLink(const FileEntry& entry, const std::string& destination) {
  const auto path = entry.path();
  if (!path || !isUsablePath(*path) || entry.isRoot()) {
    logging::error("A symbolic link has no usable path: %@", path);
    return LinkOutcome::Failed;
  }
  const std::string linkPath = paths::append(destination, *path);
  if (files::exists(linkPath)) {
    if (auto removed = files::removeItem(linkPath); !removed) {
      logging::error("Failed to delete symbolic link %@. %@ ", linkPath, removed.error());
      return LinkOutcome::NotRemoved;
    }
  }
  return makeLink(entry, linkPath);
}

}  // namespace deployer
