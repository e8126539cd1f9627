#include "InstallationDeployer/checks/SpaceOutlook.h"

#include <set>
#include <string_view>
#include <utility>

#include "InstallationDeployer/DiskSpace.h"
#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/InternalInconsistency.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/QVNInstallConfiguration.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"

namespace deployer {

using foundation::PropertyList;
namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

using Names = std::vector<std::string>;

constexpr std::string_view kSystemVolume = "/";
// More than any file system rounds the length of a file up to would only make the check miss something.
constexpr std::uint64_t kBlockBytes = 4096;

/// None where there is no list, whatever stands there instead.
Names componentsOf(QVNInstallerManifest& manifest, const std::string& product) {
  try {
    return manifest.filterComponents(manifest.componentListForProduct(product).value_or(Names{}), product);
  } catch (const InternalInconsistency&) {
    return {};
  }
}

/// What the files on the machine take that manifests list.
class InstalledSpace {
 public:
  void add(const PropertyList& manifest) {
    for (const FileEntry& entry : fileEntriesOf(manifest)) {
      add(entry);
    }
  }
  [[nodiscard]] std::int64_t bytes() const { return bytes_.required(); }
  /// Whether more than the listed files may go.
  [[nodiscard]] bool isOpenEnded() const { return isOpenEnded_; }

 private:
  void add(const FileEntry& entry) {
    const auto path = entry.installedPath();
    if (!path) {
      return;
    }
    if (entry.isWildcard() || entry.removesContents()) {
      isOpenEnded_ = isOpenEnded_ || files::exists(paths::deleteLastComponent(*path));
      return;
    }
    const auto item = files::attributesOfItem(*path);
    if (item && item->type == foundation::FileType::Regular && known_.emplace(item->device, item->inode).second) {
      bytes_.add(DiskSpace::signedSize(item->size));
      bytes_.add(kBlockBytes);
    }
  }

  DiskSpace bytes_;
  std::set<std::pair<std::uint64_t, std::uint64_t>> known_;
  bool isOpenEnded_ = false;
};

/// A product, as the bundle has it and as it is installed.
class ProductOutlook {
 public:
  ProductOutlook(QVNInstallerManifest& bundle, std::string product)
      : bundle_(bundle),
        product_(std::move(product)),
        receipt_(receiptPath()),
        isInstalled_(files::exists(receiptPath())) {}

  /// The least that an install of it will ask for.
  [[nodiscard]] std::int64_t required() {
    DiskSpace space;
    space.addReceipt(bundle_.manifestIndex());
    for (const std::string& component : componentsOf(bundle_, product_)) {
      const PropertyList manifest = bundle_.getManifestForComponent(component);
      if (!isInstalled_ || isOtherVersion(component, manifest)) {
        space.add(manifest[kManifestComponentSize].integer().value_or(0));
      }
    }
    return space.required();
  }

  /// The files that an install of it may remove before it asks.
  void addRemovable(InstalledSpace& space) {
    for (const std::string& component : componentsOf(bundle_, product_)) {
      space.add(bundle_.getManifestForComponent(component));
    }
    if (isInstalled_) {
      for (const std::string& component : componentsOf(receipt_, product_)) {
        space.add(receipt_.getManifestForComponent(component));
      }
    }
    for (const PropertyList& other : bundle_.productsForRemoval().elements()) {
      for (const std::string& component : other[kManifestIndexListOfComponents].strings()) {
        space.add(bundle_.getManifestForComponent(component));
      }
    }
  }

 private:
  [[nodiscard]] std::string receiptPath() const {
    QVNInstallConfiguration configuration;
    configuration.setProductName(product_);
    return configuration.receiptPath();
  }
  [[nodiscard]] bool isOtherVersion(const std::string& component, const PropertyList& manifest) {
    return receipt_.getManifestForComponent(component)[kManifestComponentVersion] !=
           manifest[kManifestComponentVersion];
  }

  QVNInstallerManifest& bundle_;
  const std::string product_;
  QVNInstallerManifest receipt_;
  const bool isInstalled_;
};

std::optional<SpaceShortage> shortageOf(QVNInstallerManifest& bundle, const std::string& product,
                                        std::int64_t freeBytes) {
  ProductOutlook outlook(bundle, product);
  const std::int64_t required = outlook.required();
  if (freeBytes >= required) {
    return std::nullopt;
  }
  InstalledSpace removable;
  outlook.addRemovable(removable);
  DiskSpace available;
  available.add(freeBytes);
  available.add(removable.bytes());
  if (removable.isOpenEnded() || available.required() >= required) {
    return std::nullopt;
  }
  return SpaceShortage{.required = required, .free = available.required()};
}

}  // namespace

std::optional<SpaceShortage> spaceShortageFor(QVNInstallerManifest& bundle, const Names& products) {
  const auto volume = files::attributesOfFileSystem(std::string(kSystemVolume));
  if (!volume) {
    return std::nullopt;
  }
  std::optional<SpaceShortage> least;
  for (const std::string& product : products) {
    const auto shortage = shortageOf(bundle, product, DiskSpace::signedSize(volume->freeBytes));
    if (!shortage) {
      return std::nullopt;
    }
    if (!least || shortage->required - shortage->free < least->required - least->free) {
      least = shortage;
    }
  }
  return least;
}

}  // namespace deployer
