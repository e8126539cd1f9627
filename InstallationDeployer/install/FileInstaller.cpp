#include "InstallationDeployer/install/FileInstaller.h"

#include <utility>

#include "InstallationDeployer/install/LogFailure.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::PreparedFile;
namespace files = foundation::files;
namespace paths = foundation::paths;

bool FileInstaller::publish(PreparedFile file, const std::string& destination) {
  std::string folder = paths::deleteLastComponent(destination);
  const bool sameFolder = folder == lastFolder_;
  if (!sameFolder && !files::exists(folder) && !files::createDirectory(folder, true, rules_.directoryAttributes)) {
    return false;
  }
  if (!std::move(file).publish()) {
    return false;
  }
  if (!sameFolder) {
    resources_.writtenVolumes().note(destination);
    lastFolder_ = std::move(folder);
  }
  return true;
}

bool FileInstaller::install(const InstallAction& action) {
  const auto isThere = files::presence(action.source);
  if (!isThere) {
    return logFailure("Error: %@ (%@)", isThere.error(), action.source);
  }
  if (!*isThere) {
    return action.kind == InstallAction::Kind::ExternalFile || logFailure("path doesn't exist at %@", action.source);
  }
  const auto content =
      withSpareResources(prefetch_, [&] { return resources_.reader().read(action.source, action.isOutside); });
  if (!content) {
    return logFailure("Error: %@ (%@)", content.error(), action.source);
  }
  const auto checksum = action.entry.checksum();
  if (checksum && *checksum != content->checksum()) {
    logging::error("Checksum mismatch for component %@.\n\tFound:%@. \n\tExpected: %@\n\tDestination: %@",
                   rules_.component, content->checksum(), checksum, action.destination);
    return logFailure("The file that does not match is %@", action.source);
  }
  return makeFolderOf(action.destination) && write(*content, action);
}

bool FileInstaller::makeFolderOf(const std::string& path) {
  const std::string folder = paths::deleteLastComponent(path);
  if (files::exists(folder)) {
    return true;
  }
  const auto made =
      withSpareResources(prefetch_, [&] { return files::createDirectory(folder, true, rules_.directoryAttributes); });
  return made.ok() || logFailure("error: %@", made.error());
}

bool FileInstaller::write(const PayloadFileReader::Content& content, const InstallAction& action) {
  const std::string& path = action.destination;
  auto prepared = withSpareResources(
      prefetch_, [&] { return PreparedFile::prepare(path, content.bytes(), action.entry.attributes()); });
  if (!prepared) {
    // Written and given attributes in one go: without them it shows which of the two failed.
    const bool written = PreparedFile::prepare(path, content.bytes(), {}).ok();
    return written ? logFailure("Unable to set attributes on file: %@\n%@", path, prepared.error())
                   : logFailure("Error writing: %@ (%@)", prepared.error(), path);
  }
  if (action.isFlushed) {
    if (auto flushed = prepared->flush(); !flushed) {
      return logFailure("Error writing: %@ (%@)", flushed.error(), path);
    }
  }
  if (auto published = std::move(*prepared).publish(); !published) {
    return logFailure("Error writing: %@ (%@)", published.error(), path);
  }
  resources_.writtenVolumes().note(path);
  return true;
}

}  // namespace deployer
