#include "tools/showing/BundleContents.h"

#include <limits>
#include <unordered_set>
#include <utility>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/QVNInstallerManifest.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileAttributes.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "tools/rules/CheckedDictionary.h"
#include "tools/rules/Checksum.h"
#include "tools/rules/PathRules.h"

namespace bundletool {

using foundation::PropertyList;
namespace files = foundation::files;
namespace paths = foundation::paths;
using Need = CheckedDictionary::Need;
using namespace deployer;

namespace {

constexpr std::uint64_t kLargestSize = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t kLargestId = std::numeric_limits<std::uint32_t>::max();

class BundleReader {
 public:
  BundleReader(std::string path, Problems& problems) : manifests_(path), problems_(problems) {
    contents_.path = std::move(path);
  }

  std::optional<BundleContents> read() {
    const std::string indexPath = paths::append(manifests_.manifestDirectoryPath(), kQVNManifestIndexName);
    const auto index = CheckedDictionary::fromFile(indexPath, "the manifest index", problems_);
    if (!index) {
      return std::nullopt;
    }
    readIndex(*index);
    hasPayload_ = holdsPayload();
    for (const std::string& component : componentNames_) {
      readComponent(component);
    }
    return std::move(contents_);
  }

 private:
  void readIndex(const CheckedDictionary& index) {
    contents_.payloadVersion = index.string(kManifestIndexPayloadVersion, Need::Optional);
    contents_.installerVersion = index.string(kManifestIndexInstallerVersion, Need::Optional);
    contents_.payloadSize = index.number(kManifestIndexPayloadSize, kLargestSize);
    contents_.receiptSize = index.number(kManifestIndexReceiptSize, kLargestSize);
    contents_.receiptHasPayloadContents = index.boolean(kManifestIndexReceiptHasPayloadContents);
    contents_.detectedProducts = productNames(index, kManifestIndexProductDetectionArray);
    contents_.removedProducts = productNames(index, kManifestIndexProductRemovals);
    if (const auto products = index.dictionary(kManifestIndexDictionaryOfProducts, Need::Required)) {
      for (const PropertyList::Entry& entry : products->value().entries()) {
        readProduct(*products, std::string(entry.key));
      }
    }
  }

  /// A receipt may leave the payload out; the folder of it stays then, empty.
  [[nodiscard]] bool holdsPayload() const {
    const auto names = files::contentsOfDirectory(paths::append(contents_.path, kQVNPayloadRootPath));
    return names && (!names->empty() || contents_.receiptHasPayloadContents.value_or(false));
  }

  static std::vector<std::string> productNames(const CheckedDictionary& parent, std::string_view key) {
    std::vector<std::string> names;
    for (const CheckedDictionary& entry : parent.dictionaries(key, Need::Optional)) {
      if (auto name = entry.string(kManifestIndexProductName, Need::Required)) {
        names.push_back(std::move(*name));
      }
    }
    return names;
  }

  void readProduct(const CheckedDictionary& products, const std::string& name) {
    products.refuseIf(faultOfProductName(name), name, "choose another name for the product");
    const auto entry = products.dictionary(name, Need::Required);
    if (!entry) {
      return;
    }
    BundleContents::Product product;
    product.name = name;
    const auto phases = entry->dictionaries(kManifestIndexListOfPhases, Need::Optional);
    for (std::size_t index = 0; index < phases.size(); ++index) {
      product.phases.push_back(readPhase(phases[index], index));
    }
    product.crossGrades = productNames(*entry, kManifestIndexCrossGrades);
    contents_.products.push_back(std::move(product));
  }

  BundleContents::Phase readPhase(const CheckedDictionary& entry, std::size_t index) {
    BundleContents::Phase phase;
    phase.type = entry.string(kQVNInstallPhaseType, Need::Required).value_or("");
    const std::string_view expected =
        index == 0 ? kQVNInstallPhaseLocalPayload : kQVNInstallPhaseExternalInstallationDeployer;
    if (!phase.type.empty() && phase.type != expected) {
      entry.refuse(kQVNInstallPhaseType,
                   foundation::format("phase %lu is %@", static_cast<std::uint64_t>(index), phase.type),
                   foundation::format("it must be %@", expected));
    }
    if (phase.type == kQVNInstallPhaseExternalInstallationDeployer) {
      phase.bundlePath = entry.string(kQVNInstallPhaseExternalBundlePath, Need::Required);
      phase.externalProduct = entry.string(kQVNInstallPhaseExternalProductName, Need::Required);
      return phase;
    }
    phase.components = entry.strings(kManifestIndexListOfComponents, Need::Optional);
    for (std::size_t position = 0; position < phase.components.size(); ++position) {
      noteComponent(entry, phase.components[position], position);
    }
    return phase;
  }

  void noteComponent(const CheckedDictionary& phase, const std::string& name, std::size_t position) {
    const std::string key = elementKey(kManifestIndexListOfComponents, position);
    if (!phase.refuseIf(faultOfComponentName(name), key, "choose another name for the component") &&
        known_.insert(name).second) {
      componentNames_.push_back(name);
    }
  }

  void readComponent(const std::string& name) {
    const auto manifest = CheckedDictionary::fromFile(
        manifests_.getPathForComponent(name), foundation::format("the manifest of component %@", name), problems_);
    if (!manifest) {
      return;
    }
    BundleContents::Component component;
    component.name = name;
    component.version = manifest->string(kManifestComponentVersion, Need::Required);
    component.size = manifest->number(kManifestComponentSize, kLargestSize);
    component.daemons = manifest->strings(kManifestListOfLaunchDaemons, Need::Optional);
    component.agents = manifest->strings(kManifestListOfLaunchAgents, Need::Optional);
    component.rebuildKextCache = manifest->boolean(kManifestRebuildKextCache);
    for (const CheckedDictionary& entry : manifest->dictionaries(kManifestListOfExecutables, Need::Optional)) {
      component.executables.push_back(readExecutable(entry));
    }
    const std::string payload = paths::append(paths::append(contents_.path, kQVNPayloadRootPath), name);
    for (const CheckedDictionary& entry : manifest->dictionaries(kManifestListOfFiles, Need::Optional)) {
      component.files.push_back(readFile(entry, payload));
    }
    contents_.components.push_back(std::move(component));
  }

  static BundleContents::Executable readExecutable(const CheckedDictionary& entry) {
    return {readPath(entry), entry.arguments(kManifestListOfArguments),
            flagsOf(entry, {kManifestExecuteOnInstall, kManifestRunOnce, kManifestIsApplication})};
  }

  [[nodiscard]] BundleContents::File readFile(const CheckedDictionary& entry, const std::string& payload) const {
    BundleContents::File file;
    file.path = readPath(entry);
    file.owner = entry.number(kFileOwnerAccountID, kLargestId);
    file.group = entry.number(kFileGroupOwnerAccountID, kLargestId);
    file.mode = entry.number(kFilePosixPermissions, foundation::kPermissionBits);
    file.externalSource = entry.string(kManifestExternalSourcePath, Need::Optional);
    file.flags = flagsOf(entry, {kManifestIsModifiableFile, kManifestCheckForExternalFileChanges,
                                 kManifestIsWildcardPath, kManifestRemoveDirectoryAndContents});
    const bool isLink = entry.boolean(kManifestIsSymbolicLink).value_or(false);
    file.type = isLink ? "link" : entry.boolean(kManifestIsDirectory).value_or(false) ? "folder" : "file";
    if (isLink) {
      file.target = entry.string(kManifestSymbolicLinkTarget, Need::Required);
    }
    readChecksum(entry, payload, file);
    return file;
  }

  void readChecksum(const CheckedDictionary& entry, const std::string& payload, BundleContents::File& file) const {
    file.checksum = entry.string(kManifestSHAChecksum, Need::Optional);
    if (file.type == "file" && !file.externalSource && !entry.has(kManifestSHAChecksum)) {
      entry.refuse("", "the file has no source", "give it a checksum or an external source");
    }
    if (!file.checksum) {
      return;
    }
    if (entry.refuseIf(faultOfChecksum(*file.checksum), kManifestSHAChecksum, "give the SHA-256 of the content")) {
      return;
    }
    const auto stored = files::attributesOfItem(paths::append(payload, *file.checksum));
    if (stored && stored->type == foundation::FileType::Regular) {
      file.size = stored->size;
    } else if (hasPayload_ && file.type == "file" && !file.externalSource) {
      entry.refuse(kManifestSHAChecksum,
                   foundation::format("the payload has no file with the checksum %@", *file.checksum),
                   "copy the bundle again, or rebuild it");
    }
  }

  static std::string readPath(const CheckedDictionary& entry) {
    auto path = entry.string(kManifestFilePath, Need::Required);
    if (path) {
      entry.refuseIf(faultOfInstallPath(*path), kManifestFilePath, "give an absolute path");
    }
    return path.value_or("");
  }

  static std::vector<std::string> flagsOf(const CheckedDictionary& entry,
                                          std::initializer_list<std::string_view> keys) {
    std::vector<std::string> flags;
    for (const std::string_view key : keys) {
      if (entry.boolean(key).value_or(false)) {
        flags.emplace_back(key);
      }
    }
    return flags;
  }

  const QVNInstallerManifest manifests_;
  Problems& problems_;
  BundleContents contents_;
  bool hasPayload_ = false;
  std::vector<std::string> componentNames_;
  std::unordered_set<std::string> known_;
};

}  // namespace

std::optional<BundleContents> readBundle(const std::string& path, Problems& problems) {
  return BundleReader(path, problems).read();
}

}  // namespace bundletool
