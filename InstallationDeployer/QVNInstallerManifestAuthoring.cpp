#include <algorithm>
#include <stdexcept>
#include <utility>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ComponentScan.h"
#include "InstallationDeployer/DiskSpace.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/QVNInstallerManifest.h"
#include "InstallationDeployer/QVNInstallerState.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/propertylist/PropertyListFile.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::FileAttributes;
using foundation::PropertyList;
namespace paths = foundation::paths;
namespace files = foundation::files;
namespace plist = foundation::plist;

namespace {

constexpr std::string_view kDefaultVersion = "1.0.0";
// A component may list tens of thousands of files; the binary form is read four times as fast.
constexpr plist::Format kComponentManifestFormat = plist::Format::Binary;
constexpr FileAttributes kManifestDirectoryAttributes{std::nullopt, std::nullopt, 0755};

bool holds(const PropertyList& list, const PropertyList& element) {
  return std::ranges::find(list.elements(), element) != list.elements().end();
}

PropertyList replacingElement(const PropertyList& array, std::size_t index, PropertyList element) {
  PropertyList::Array elements(array.elements().begin(), array.elements().end());
  elements.resize(std::max(elements.size(), index + 1));
  elements[index] = std::move(element);
  return elements;
}

bool isString(const PropertyList& value) { return value.isString(); }
bool isArray(const PropertyList& value) { return value.isArray(); }
bool isDictionary(const PropertyList& value) { return value.isDictionary(); }

bool expect(bool (*isOfType)(const PropertyList&), std::string_view typeName, std::string_view key,
            const PropertyList& value) {
  if (isOfType(value)) {
    return true;
  }
  logging::error("invalid manifest index plist option. %@ expects %s. found %@", key, typeName, value);
  return false;
}

std::vector<std::string> keysOf(const PropertyList& dictionary) {
  std::vector<std::string> keys;
  keys.reserve(dictionary.count());
  for (const PropertyList::Entry& entry : dictionary.entries()) {
    keys.emplace_back(entry.key);
  }
  return keys;
}

}  // namespace

bool QVNInstallerManifest::addComponentManifest(const std::string& component, const std::string& version,
                                                const std::string& fromDirectory, const std::string& rootPrefix,
                                                const std::string& forProduct,
                                                const std::optional<std::string>& withPlistPath) {
  constexpr std::string_view kNotRegistered = "Failed to update the manifest index for %@ productName: %@";
  if (!getManifestForComponent(component).isNil()) {
    const Names listed = componentListForProduct(forProduct).value_or(Names{});
    if (std::ranges::find(listed, component) != listed.end()) {
      logging::error("Error. %@ already has a reference to %@ in %@", forProduct, component,
                     kManifestIndexListOfComponents);
      installerState_ = QVNInstallerStateFailed;
      return false;
    }
    logging::info("Adding %@ reference to %@ of %@", component, kManifestIndexListOfComponents, forProduct);
  } else if (isFailureState(static_cast<QVNInstallerState>(installerState_))) {
    logging::error(kNotRegistered, component, forProduct);
    return false;
  } else {
    logging::info("Creating %@ and adding to %@ of %@", component, kManifestIndexListOfComponents, forProduct);
  }
  MutableComponentManifest manifest;
  if (!populateComponentManifest(manifest, fromDirectory, fromDirectory, rootPrefix, withPlistPath)) {
    return failAuthoring("Failed to populate component manifest for component %@", component);
  }
  manifest.version = version;
  if (!writeComponentManifest(component, manifest.dictionary())) {
    return failAuthoring("Failed to write component manifest for component %@", component);
  }
  if (!updateManifestIndexForComponent(component, forProduct)) {
    return failAuthoring(kNotRegistered, component, forProduct);
  }
  return true;
}

bool QVNInstallerManifest::failAuthoring(std::string_view message, const std::string& component,
                                         const std::optional<std::string>& product) {
  logging::error(message, component, product);
  installerState_ = QVNInstallerStateFailed;
  return false;
}

bool QVNInstallerManifest::populateComponentManifest(MutableComponentManifest& manifest,
                                                     const std::string& fromDirectory, const std::string& rootDirectory,
                                                     const std::string& rootPrefix,
                                                     const std::optional<std::string>& withPlistPath) {
  ComponentScan scan({rootDirectory, rootPrefix, withPlistPath, checksumBlock_, recordsRootAsOwner_}, manifest,
                     componentManifests_);
  const bool scanned = scan.scan(fromDirectory);
  if (scan.failed()) {
    installerState_ = QVNInstallerStateFailed;
  }
  return scanned;
}

bool QVNInstallerManifest::walkDirectory(const std::string& root, const std::string& currentPath,
                                         const std::optional<std::string>& excludedPath, const DirectoryBlock& block) {
  const std::string directory = paths::append(root, currentPath);
  const auto names = files::contentsOfDirectory(directory);
  if (!names) {
    if (!names.error().isNoSuchFile()) {
      logging::error("Unable to read directory contents. %@", names.error());
    }
    return true;
  }
  for (const std::string& name : *names) {
    const std::string path = paths::append(directory, name);
    const auto attributes = files::attributesOfItem(path);
    if (!attributes) {
      logging::error("Unable to aquire attributes of %@\n%@", path, attributes.error());
      continue;
    }
    if (attributes->isSymbolicLink()) {
      continue;
    }
    if (!block(path, attributes->isDirectory())) {
      return false;
    }
    const std::string relative = paths::append(currentPath, name);
    const bool excluded = excludedPath && !excludedPath->empty() && relative.starts_with(*excludedPath);
    if (attributes->isDirectory() && !excluded) {
      // A block that stops inside a folder stops that folder only.
      static_cast<void>(walkDirectory(root, relative, excludedPath, block));
    }
  }
  return true;
}

bool QVNInstallerManifest::writeComponentManifest(const std::string& component,
                                                  const PropertyList& componentManifestDictionary) {
  const std::string path = componentManifestPathForName(component);
  static_cast<void>(files::createDirectory(manifestDirectoryPath(), true, kManifestDirectoryAttributes));
  // A name with a slash in it would remove and write something elsewhere.
  if (paths::isSingleComponent(component)) {
    static_cast<void>(files::removeItem(path));
    if (plist::writeFile(componentManifestDictionary, path, kComponentManifestFormat)) {
      return true;
    }
  }
  logging::error("failed to write component manifest to: %@", path);
  return false;
}

bool QVNInstallerManifest::updateManifestIndexForComponent(const std::string& component,
                                                           const std::string& forProduct) {
  logging::info("Updated manifest index for component %@ of product %@.", component, forProduct);
  const PropertyList index = manifestIndex();
  const PropertyList& product = index[kManifestIndexDictionaryOfProducts][forProduct];
  const PropertyList& phases = product[kManifestIndexListOfPhases];
  if (phases.count() > 0) {
    requirePhaseType(phases, 0, forProduct, kQVNInstallPhaseLocalPayload);
  }
  const PropertyList& phase = phases.at(0);
  if (holds(phase[kManifestIndexListOfComponents], component)) {
    return true;
  }
  const PropertyList manifest = getManifestForComponent(component);
  if (manifest.isNil() && isFailureState(static_cast<QVNInstallerState>(installerState_))) {
    return false;
  }
  const PropertyList newPhase =
      phase.with(kManifestIndexListOfComponents, phase[kManifestIndexListOfComponents].appending(component))
          .with(kQVNInstallPhaseType, kQVNInstallPhaseLocalPayload);
  DiskSpace payload;
  payload.add(index[kManifestIndexPayloadSize].integer().value_or(0));
  payload.add(manifest[kManifestComponentSize].integer().value_or(0));
  return writeProduct(
      forProduct, product.with(kManifestIndexListOfPhases, replacingElement(phases, 0, newPhase)),
      index.with(kManifestIndexPayloadSize, payload.required()).with(kManifestIndexReceiptSize, sizeOfReceipt()));
}

std::int64_t QVNInstallerManifest::sizeOfReceipt() {
  std::int64_t size = 0;
  walkDirectory(installerPath_, "", std::string(kQVNPayloadRootPath), [&size](const std::string& path, bool) {
    if (const auto attributes = files::attributesOfItem(path)) {
      size += static_cast<std::int64_t>(attributes->size);
    }
    return true;
  });
  return size;
}

bool QVNInstallerManifest::writeProduct(std::string_view name, const PropertyList& product, const PropertyList& index) {
  const PropertyList products = index[kManifestIndexDictionaryOfProducts].with(name, product);
  return writeManifestIndex(index.with(kManifestIndexDictionaryOfProducts, products));
}

bool QVNInstallerManifest::updateManifestIndexForExternalTool(const std::string& bundlePath,
                                                              const std::string& withExternalProduct,
                                                              const std::string& forProduct) {
  logging::debug("updateManifestIndexForExternalTool: %@ withExternalProduct:%@ forProduct: %@", bundlePath,
                 withExternalProduct, forProduct);
  static_cast<void>(files::createDirectory(manifestDirectoryPath(), true, kManifestDirectoryAttributes));
  const PropertyList index = manifestIndex();
  const PropertyList& product = index[kManifestIndexDictionaryOfProducts][forProduct];
  PropertyList phases = product[kManifestIndexListOfPhases];
  if (phases.count() >= 2) {
    requirePhaseType(phases, 1, forProduct, kQVNInstallPhaseExternalInstallationDeployer);
    return true;
  }
  if (phases.count() == 0) {
    phases =
        PropertyList(PropertyList::Array{})
            .appending(PropertyList::dictionary({{std::string(kQVNInstallPhaseType), kQVNInstallPhaseLocalPayload}}));
  }
  const PropertyList toolPhase =
      PropertyList::dictionary({{std::string(kQVNInstallPhaseType), kQVNInstallPhaseExternalInstallationDeployer},
                                {std::string(kQVNInstallPhaseExternalBundlePath), bundlePath},
                                {std::string(kQVNInstallPhaseExternalProductName), withExternalProduct}});
  return writeProduct(forProduct, product.with(kManifestIndexListOfPhases, phases.appending(toolPhase)), index);
}

bool QVNInstallerManifest::updateManifestIndexWithOptions(const PropertyList& options,
                                                          const std::optional<std::string>& withPlist) {
  PropertyList index = manifestIndex();
  if (index.isNil()) {
    logging::error("Error: No manifest index found. Components must be created before manifest index is updated.");
    installerState_ = QVNInstallerStateFailed;
    return false;
  }
  const auto decide = [&options, old = index](std::string_view key, const PropertyList& fallback) {
    const PropertyList& known = options[key].isNil() ? old[key] : options[key];
    return known.isNil() ? fallback : known;
  };
  if (withPlist && !mergeOptionsPlist(*withPlist, index)) {
    installerState_ = QVNInstallerStateFailed;
    return false;
  }
  index = index.with(kManifestIndexReceiptHasPayloadContents, decide(kManifestIndexReceiptHasPayloadContents, true))
              .with(kManifestIndexPayloadVersion, decide(kManifestIndexPayloadVersion, kDefaultVersion))
              .with(kManifestIndexInstallerVersion, decide(kManifestIndexInstallerVersion, kDefaultVersion));
  const bool written = writeManifestIndex(index);
  logging::info("Updated manifest index with options: %@ ", options);
  return written;
}

bool QVNInstallerManifest::mergeOptionsPlist(const std::string& path, PropertyList& index) {
  PropertyList content;
  auto read = plist::readDictionary(path);
  if (read) {
    content = *std::move(read);
  } else if (!plist::doesNotParse(read.error())) {
    logging::error("Failed to read %@. %@", path, read.error());
    return false;
  }
  if (!mergeProductArrays(content, index) || !mergeCleanup(content, index)) {
    return false;
  }
  mergeCrossGrades(content, index);
  if (content.isNil()) {
    logging::info("Updated manifest index with options from plist: %@ ", content);
  } else {
    logging::info("Updated manifest index with options from plist: %@ ", keysOf(content));
  }
  return true;
}

bool QVNInstallerManifest::mergeProductArrays(const PropertyList& options, PropertyList& index) {
  const PropertyList& detection = options[kManifestIndexProductDetectionArray];
  if (!detection.isNil()) {
    if (!validateProductDetectionArray(detection)) {
      logging::error(
          "Manifiest index plist options for product detection have invalid structure.\n\tProduct detection array = %@",
          detection);
      return false;
    }
    index = index.with(kManifestIndexProductDetectionArray, detection);
  }
  const PropertyList& removals = options[kManifestIndexProductRemovals];
  if (!removals.isNil()) {
    if (!validateProductRemovalsArray(removals)) {
      logging::error(
          "Manifiest index plist options for product removals have invalid structure.\n\tProduct removal array = %@",
          removals);
      return false;
    }
    index = index.with(kManifestIndexProductRemovals, removals);
  }
  return true;
}

bool QVNInstallerManifest::mergeCleanup(const PropertyList& options, PropertyList& index) {
  const PropertyList& cleanup = options[kManifestIndexProductCleanup];
  if (cleanup.isNil()) {
    return true;
  }
  const PropertyList& components = cleanup[kManifestIndexListOfComponents];
  if (!components.isArray()) {
    logging::error(
        "Manifiest index plist options for product cleanup has invalid structure.\n\tInvalid manifest index plist "
        "option. %@ expects NSArray. found %@",
        kManifestIndexListOfComponents, components);
    return false;
  }
  index = index.with(kManifestIndexProductCleanup, cleanup);
  return true;
}

void QVNInstallerManifest::mergeCrossGrades(const PropertyList& options, PropertyList& index) {
  const PropertyList& fromOptions = options[kManifestIndexDictionaryOfProducts];
  if (fromOptions.entries().empty()) {
    return;
  }
  PropertyList products = index[kManifestIndexDictionaryOfProducts];
  for (const PropertyList::Entry& product : fromOptions.entries()) {
    const PropertyList& crossGrades = product.value[kManifestIndexCrossGrades];
    if (crossGrades.isNil()) {
      throw std::invalid_argument(
          foundation::format("Product %@ of the options has no %@", product.key, kManifestIndexCrossGrades));
    }
    products = products.with(product.key, products[product.key].with(kManifestIndexCrossGrades, crossGrades));
  }
  index = index.with(kManifestIndexDictionaryOfProducts, products);
}

bool QVNInstallerManifest::validateProductDetectionArray(const PropertyList& array) {
  return validateProductArray(array, kManifestIndexProductDetectionArray, false);
}

bool QVNInstallerManifest::validateProductRemovalsArray(const PropertyList& array) {
  return validateProductArray(array, kManifestIndexProductRemovals, true);
}

bool QVNInstallerManifest::validateProductArray(const PropertyList& array, std::string_view key, bool withComponents) {
  return expect(isArray, "NSArray", key, array) &&
         std::ranges::all_of(array.elements(), [&](const PropertyList& element) {
           const auto arrayUnder = [&element](std::string_view name) {
             return expect(isArray, "NSArray", name, element[name]);
           };
           return expect(isDictionary, "NSDictionary", key, element) &&
                  expect(isString, "NSString", kManifestIndexProductName, element[kManifestIndexProductName]) &&
                  arrayUnder(kManifestIndexProductDetectionPaths) &&
                  (!withComponents || arrayUnder(kManifestIndexListOfComponents));
         });
}

bool QVNInstallerManifest::writeManifestIndex(const PropertyList& index) {
  if (!plist::writeFile(index, paths::append(manifestDirectoryPath(), kQVNManifestIndexName))) {
    logging::error("Failed to write updated manifest index.");
    return false;
  }
  manifestIndex_ = {};
  return true;
}

}  // namespace deployer
