#include "InstallationDeployer/QVNInstallerManifest.h"

#include <unordered_set>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/InternalInconsistency.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/QVNInstallerState.h"
#include "InstallationDeployer/RestrictedPaths.h"
#include "general/foundation/Paths.h"
#include "general/foundation/propertylist/PropertyListFile.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::PropertyList;
namespace paths = foundation::paths;
namespace plist = foundation::plist;

namespace {

bool isSilentlyAbsent(const foundation::Error& error) { return error.isNoSuchFile() || plist::doesNotParse(error); }

}  // namespace

QVNInstallerManifest::QVNInstallerManifest(std::string installerPath) : installerPath_(std::move(installerPath)) {}

PropertyList QVNInstallerManifest::manifestIndex() {
  if (!manifestIndex_.isNil()) {
    return manifestIndex_;
  }
  const std::string path = paths::append(manifestDirectoryPath(), kQVNManifestIndexName);
  auto index = plist::readDictionary(path);
  if (index) {
    manifestIndex_ = *std::move(index);
    return manifestIndex_;
  }
  return isSilentlyAbsent(index.error()) ? PropertyList()
                                         : failReading("Failed to read manifest index: %@. %@", path, index.error());
}

std::string QVNInstallerManifest::manifestDirectoryPath() const {
  return paths::append(installerPath_, kQVNManifestDirectoryPath);
}

std::string QVNInstallerManifest::componentManifestPathForName(std::string_view name) const {
  return paths::appendExtension(paths::append(manifestDirectoryPath(), name), kQVNManifestExtension);
}

std::string QVNInstallerManifest::getPathForComponent(std::string_view name) const {
  return componentManifestPathForName(name);
}

PropertyList QVNInstallerManifest::getManifestForComponent(const std::string& name) {
  constexpr std::string_view kFailed = "Failed to read manifest for %@. %@";
  if (!paths::isSingleComponent(name)) {
    return failReading(
        kFailed, name,
        foundation::fileError(foundation::kReadInvalidName, "The component's name is no file name.", name));
  }
  auto manifest = componentManifests_.read(getPathForComponent(name));
  if (manifest) {
    return *std::move(manifest);
  }
  return isSilentlyAbsent(manifest.error()) ? PropertyList() : failReading(kFailed, name, manifest.error());
}

PropertyList QVNInstallerManifest::failReading(std::string_view message, std::string_view what,
                                               const foundation::Error& error) {
  logging::error(message, what, error);
  installerState_ = QVNInstallerStateFailed;
  couldNotRead_ = true;
  return {};
}

bool QVNInstallerManifest::canRead(const Names& components) {
  static_cast<void>(manifestIndex());
  for (const std::string& component : components) {
    static_cast<void>(getManifestForComponent(component));
  }
  return !couldNotRead_;
}

bool QVNInstallerManifest::endsAt(const std::string& component, const PropertyList& manifest) const {
  return manifest.isNil() && isFailureState(static_cast<QVNInstallerState>(installerState_)) &&
         !knownAsMissing_.contains(component);
}

PropertyList QVNInstallerManifest::productsDictionary() { return manifestIndex()[kManifestIndexDictionaryOfProducts]; }

PropertyList QVNInstallerManifest::arrayOfInstallPhasesForProduct(std::string_view product) {
  return productsDictionary()[product][kManifestIndexListOfPhases];
}

std::optional<QVNInstallerManifest::Names> QVNInstallerManifest::componentListForProduct(std::string_view product) {
  const PropertyList phases = arrayOfInstallPhasesForProduct(product);
  if (phases.elements().empty()) {
    return std::nullopt;
  }
  requirePhaseType(phases, 0, product, kQVNInstallPhaseLocalPayload);
  const PropertyList& components = phases.at(0)[kManifestIndexListOfComponents];
  if (!components.isArray()) {
    return std::nullopt;
  }
  return components.strings();
}

void QVNInstallerManifest::requirePhaseType(const PropertyList& phases, std::size_t phase, std::string_view product,
                                            std::string_view type) {
  if (phases.at(phase)[kQVNInstallPhaseType].string() != type) {
    throw InternalInconsistency(
        foundation::format("Install Phase %d of Product %@ is not %@", static_cast<int>(phase), product, type));
  }
}

QVNInstallerManifest::Names QVNInstallerManifest::filterComponents(const Names& components,
                                                                   std::string_view forProduct) {
  const Names listed = componentListForProduct(forProduct).value_or(Names{});
  std::unordered_set<std::string_view> wanted(listed.begin(), listed.end());
  Names filtered;
  for (const std::string& component : components) {
    if (wanted.erase(component) == 1) {
      filtered.push_back(component);
    }
  }
  return filtered;
}

PropertyList QVNInstallerManifest::listOfProductDetectionDictionaries() {
  return manifestIndex()[kManifestIndexProductDetectionArray];
}

PropertyList QVNInstallerManifest::crossGradeDictionariesForProduct(std::string_view product) {
  return productsDictionary()[product][kManifestIndexCrossGrades];
}

PropertyList QVNInstallerManifest::productsForRemoval() { return manifestIndex()[kManifestIndexProductRemovals]; }

PropertyList QVNInstallerManifest::componentsAndVersionsForProduct(std::string_view product) {
  const auto components = componentListForProduct(product);
  if (!components) {
    logging::error("Receipt unable to determine list of components.");
    installerState_ = QVNInstallerStateFailed;
    return {};
  }
  PropertyList::Array records;
  records.reserve(components->size());
  for (const std::string& component : *components) {
    const PropertyList version = getManifestForComponent(component)[kManifestComponentVersion];
    if (version.isNil()) {
      logging::error("Unable to retreive %@ for component %@", kManifestComponentVersion, component);
      installerState_ = QVNInstallerStateFailed;
      return {};
    }
    records.push_back(PropertyList::dictionary(
        {{std::string(kManifestComponentName), component}, {std::string(kManifestComponentVersion), version}}));
  }
  return PropertyList(std::move(records));
}

std::optional<PropertyList::Array> QVNInstallerManifest::listOfExecutablesForComponents(const Names& components) {
  PropertyList::Array executables;
  for (const std::string& component : components) {
    const PropertyList manifest = getManifestForComponent(component);
    if (endsAt(component, manifest)) {
      return std::nullopt;
    }
    const PropertyList& listed = manifest[kManifestListOfExecutables];
    logging::debug("Component %@ contains componentExecutables: %@", component, listed);
    executables.insert(executables.end(), listed.elements().begin(), listed.elements().end());
  }
  return executables;
}

PropertyList QVNInstallerManifest::listOfDaemonsForComponent(const std::string& name) {
  return getManifestForComponent(name)[kManifestListOfLaunchDaemons];
}

PropertyList QVNInstallerManifest::listOfAgentsForComponent(const std::string& name) {
  return getManifestForComponent(name)[kManifestListOfLaunchAgents];
}

QVNInstallerManifest::Names QVNInstallerManifest::listOfDaemonsForComponents(const Names& components) {
  return uniqueLabels(components, kManifestListOfLaunchDaemons);
}

QVNInstallerManifest::Names QVNInstallerManifest::listOfAgentsForComponents(const Names& components) {
  return uniqueLabels(components, kManifestListOfLaunchAgents);
}

QVNInstallerManifest::Names QVNInstallerManifest::uniqueLabels(const Names& components, std::string_view key) {
  Names labels;
  std::unordered_set<std::string> known;
  for (const std::string& component : components) {
    for (std::string& label : getManifestForComponent(component)[key].strings()) {
      if (known.insert(label).second) {
        labels.push_back(std::move(label));
      }
    }
  }
  return labels;
}

bool QVNInstallerManifest::walkManifestFileListForComponents(const std::optional<Names>& components,
                                                             bool inLeavesToRootOrder, bool exitOnFailure,
                                                             const FileListBlock& block) {
  if (!components) {
    return false;
  }
  bool result = true;
  for (const std::string& component : *components) {
    const PropertyList manifest = getManifestForComponent(component);
    if (endsAt(component, manifest)) {
      return false;
    }
    const auto entries = manifest[kManifestListOfFiles].elements();
    for (std::size_t visited = 0; visited < entries.size(); ++visited) {
      const std::size_t index = inLeavesToRootOrder ? entries.size() - 1 - visited : visited;
      result = block(component, manifest, FileEntry(entries[index]));
      if (!result) {
        break;
      }
    }
    if (!result && exitOnFailure) {
      return false;
    }
  }
  return result;
}

const std::set<std::string, std::less<>>& QVNInstallerManifest::restrictedPaths() {
  return deployer::restrictedPaths();
}

}  // namespace deployer
