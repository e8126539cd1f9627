#include "tools/building/PayloadStore.h"

#include <utility>

#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "tools/building/BundleAttributes.h"
#include "tools/building/Interruption.h"

namespace bundletool {

namespace files = foundation::files;
namespace paths = foundation::paths;

PayloadStore::PayloadStore(std::string root, Problems& problems, ProgressBar& progress)
    : root_(std::move(root)), problems_(problems), progress_(progress) {}

bool PayloadStore::beginComponent(const std::string& name) {
  folder_ = paths::append(root_, name);
  current_ = &stored_[name];
  if (const auto made = files::createDirectory(folder_, true, kBundleFolderAttributes); !made) {
    problems_.error({folder_, "", "the folder cannot be made: " + made.error().text, ""});
    return false;
  }
  return true;
}

std::string PayloadStore::store(const std::string& path) {
  if (Interruption::requested()) {
    return {};
  }
  foundation::SHA256 hash;
  const auto content = files::read(path, buffer_, [&](std::span<const std::byte> piece) {
    hash.update(piece);
    progress_.addBytes(piece.size());
  });
  if (!content) {
    problems_.error({path, "", "the file cannot be read: " + content.error().text, "make it readable"});
    return {};
  }
  std::string checksum = deployer::QVNInstallerChecksum::textForDigest(hash.finish());
  progress_.addFile();
  if (current_->contains(checksum)) {
    return checksum;
  }
  const std::string destination = paths::append(folder_, checksum);
  if (const auto written = files::writeAtomically(*content, destination, kBundleFileAttributes); !written) {
    problems_.error({destination, "", "the file cannot be written: " + written.error().text, ""});
    return {};
  }
  current_->insert(checksum);
  return checksum;
}

bool PayloadStore::holds(const std::string& component, const std::string& checksum) const {
  const auto contents = stored_.find(component);
  return contents != stored_.end() && contents->second.contains(checksum);
}

}  // namespace bundletool
