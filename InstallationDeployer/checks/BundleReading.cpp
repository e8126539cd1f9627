#include "InstallationDeployer/checks/BundleReading.h"

#include <optional>
#include <utility>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ExecutableEntry.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/QVNInstallConfiguration.h"
#include "general/foundation/Paths.h"
#include "general/foundation/extensions/NSDictionaryExtensions.h"
#include "general/foundation/files/FileBuffer.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/propertylist/PropertyListFile.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/system/NSProcessInfoExtensions.h"

namespace deployer {

using foundation::format;
using foundation::PropertyList;
using foundation::NSDictionaryExtensions::boolForKey;
namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

constexpr std::string_view kTargetPath = "/";
constexpr std::size_t kMostWarnings = 20;
// An install holds a whole file in memory, and every machine has as much as this.
constexpr std::uint64_t kSurelyFittingBytes = std::uint64_t{1} << 30;

std::string receiptOf(const std::string& product) {
  QVNInstallConfiguration configuration;
  configuration.setProductName(product);
  return configuration.receiptPath();
}

bool fitsIntoMemory(std::uint64_t bytes) {
  return bytes <= kSurelyFittingBytes || foundation::FileBuffer().reserve(bytes);
}

std::string destinationText(const InstallAction& action) { return " (it becomes " + action.destination + ")"; }

/// What makes a link impossible, in words, or nothing.
std::optional<std::string> faultOfLink(const FileEntry& link) {
  if (!link.hasUsablePath() || link.isRoot() || !paths::isWithinLimits(*link.path())) {
    return format("has a link without a usable path: %@", link.path());
  }
  return link.linkTarget().value_or("").empty() ? std::optional(format("has a link without a target: %@", link.path()))
                                                : std::nullopt;
}

/// What makes an entry impossible to install, in words, or nothing.
std::optional<std::string> faultOfEntry(const InstallAction& action) {
  using Kind = InstallAction::Kind;
  if (action.kind == Kind::Refuse) {
    return "has an entry that cannot be installed: " + action.refusal;
  }
  if (action.kind == Kind::Link) {
    return faultOfLink(action.entry);
  }
  const bool isMade =
      action.kind == Kind::Directory || action.kind == Kind::ExternalDirectory || action.kind == Kind::PayloadFile;
  return isMade && !paths::isWithinLimits(action.destination)
             ? std::optional("has an entry whose path is longer than the system takes: " + action.destination)
             : std::nullopt;
}

/// What makes a program impossible to run, in words, or nothing.
std::optional<std::string> faultOfExecutable(const ExecutableEntry& executable) {
  if (!paths::isAbsolute(executable.path())) {
    return format("has a program without an absolute path: %@", executable.listedPath());
  }
  return executable.arguments()
             ? std::nullopt
             : std::optional(format("has a program whose arguments are no list of texts: %@", executable.listedPath()));
}

}  // namespace

BundleReading::BundleReading(std::string bundlePath, QVNInstallerManifest& manifest, BundleProblems& problems,
                             CheckProgress& progress)
    : bundlePath_(std::move(bundlePath)), manifest_(manifest), problems_(problems), progress_(progress) {}

bool BundleReading::readIndex() {
  if (manifest_.manifestIndex().isNil()) {
    const auto index = foundation::plist::readDictionary(indexPath());
    if (!index) {
      add(problemOfReading(indexPath(), "", index.error()));
      return false;
    }
  }
  if (manifest_.productsDictionary().entries().empty()) {
    addMalformed(indexPath(), "", "names no products");
    return false;
  }
  return true;
}

void BundleReading::readProduct(const std::string& product) {
  const PropertyList phases = manifest_.arrayOfInstallPhasesForProduct(product);
  if (!phases.isArray()) {
    addMalformed(indexPath(), "", format("has no list of phases for the product %@", product));
    return;
  }
  // A receipt need not have what it installed.
  hasPayload_ = bundlePath_ != receiptOf(product) ||
                boolForKey(manifest_.manifestIndex(), kManifestIndexReceiptHasPayloadContents);
  if (!hasPayload_) {
    warn(format("The receipt %@ has no payload: it can install nothing that is damaged or missing.", bundlePath_));
  }
  bool isFirst = true;
  for (const PropertyList& phase : phases.elements()) {
    readPhase(product, phase, std::exchange(isFirst, false));
  }
}

InstallRules BundleReading::rulesFor(const std::string& product) {
  return {.component = {},
          .source = paths::append(bundlePath_, kQVNPayloadRootPath),
          .destination = std::string(kTargetPath),
          .directoryAttributes = {},
          .keepsModifiableFiles = files::exists(receiptOf(product)),
          .skipsSystemFolder = !platform::NSProcessInfoExtensions::isMacOSX8AndBelow()};
}

void BundleReading::readPhase(const std::string& product, const PropertyList& phase, bool isFirst) {
  const auto type = phase[kQVNInstallPhaseType].string();
  if (isFirst && type != kQVNInstallPhaseLocalPayload) {
    addMalformed(indexPath(), "", format("has a first phase of the product %@ that installs no payload", product));
  }
  if (type == kQVNInstallPhaseExternalInstallationDeployer) {
    readNestedPhase(product, phase);
  }
  const PropertyList& components = phase[kManifestIndexListOfComponents];
  if (!components.isNil() && !components.isArray()) {
    addMalformed(indexPath(), "", format("has a list of components of the product %@ that is no list", product));
  }
  InstallRules rules = rulesFor(product);
  for (const PropertyList& component : components.elements()) {
    if (progress_.isStopped()) {
      return;
    }
    rules.component = component.text();
    const PropertyList manifest = readManifest(rules.component);
    // Nothing is installed of what later phases list.
    if (isFirst && !manifest.isNil() && read_.emplace(rules.component, rules.keepsModifiableFiles).second) {
      readComponent(rules, manifest);
    }
  }
}

void BundleReading::readNestedPhase(const std::string& product, const PropertyList& phase) {
  const auto bundle = phase[kQVNInstallPhaseExternalBundlePath].string();
  if (!bundle || !phase[kQVNInstallPhaseExternalProductName].isString()) {
    addMalformed(indexPath(), "",
                 format("has a phase of the product %@ for another engine without %@", product,
                        bundle ? kQVNInstallPhaseExternalProductName : kQVNInstallPhaseExternalBundlePath));
    return;
  }
  if (!files::exists(paths::append(*bundle, kQVNInstallationDeployerPath))) {
    warn(format("The bundle for a phase of the product %@ is not there: %@. The run will wait for its engine.", product,
                bundle));
  }
}

PropertyList BundleReading::readManifest(const std::string& component) {
  if (!paths::isSingleComponent(component)) {
    addMalformed(indexPath(), "", format("lists a component whose name is no file name: \"%@\"", component));
    return {};
  }
  PropertyList manifest = manifest_.getManifestForComponent(component);
  if (manifest.isNil()) {
    const std::string path = manifest_.getPathForComponent(component);
    const auto content = foundation::plist::readDictionary(path);
    if (!content) {
      add(problemOfReading(path, component, content.error()));
      return {};
    }
    manifest = *content;
  }
  return manifest;
}

void BundleReading::readComponent(const InstallRules& rules, const PropertyList& manifest) {
  const std::string path = manifest_.getPathForComponent(rules.component);
  if (manifest[kManifestComponentVersion].isNil()) {
    warn(format("The component %@ has no version: no later version can follow it.", rules.component));
  }
  const PropertyList& entries = manifest[kManifestListOfFiles];
  if (!entries.isNil() && !entries.isArray()) {
    addMalformed(path, rules.component, format("has no list under %@", kManifestListOfFiles));
  }
  payload_.beginComponent({rules, entries});
  for (std::size_t index = 0; index < entries.count() && !progress_.isStopped(); ++index) {
    readEntry(rules, index, FileEntry(entries.at(index)));
  }
  readExecutables(rules, manifest);
}

void BundleReading::readEntry(const InstallRules& rules, std::size_t index, const FileEntry& entry) {
  const InstallAction action = rules.decide(entry);
  if (auto fault = faultOfEntry(action)) {
    addMalformed(manifest_.getPathForComponent(rules.component), rules.component, *std::move(fault));
    return;
  }
  switch (action.kind) {
    case InstallAction::Kind::PayloadFile:
      readPayloadFile(index, rules.component, action);
      break;
    case InstallAction::Kind::ExternalFile:
    case InstallAction::Kind::ExternalDirectory:
      readExternalSource(rules.component, action);
      break;
    case InstallAction::Kind::Keep:
    case InstallAction::Kind::Skip:
    case InstallAction::Kind::Link:
    case InstallAction::Kind::Directory:
    case InstallAction::Kind::Refuse:
      break;
  }
}

void BundleReading::readPayloadFile(std::size_t index, const std::string& component, const InstallAction& action) {
  if (!hasPayload_ || !known_[component].insert(action.entry.checksum().value_or("")).second) {
    return;
  }
  const auto length = files::lengthOfReadableFile(action.source);
  if (!length) {
    BundleProblem problem = problemOfReading(action.source, component, length.error());
    problem.what += destinationText(action);
    add(std::move(problem));
  } else if (!fitsIntoMemory(*length)) {
    add({.kind = BundleProblem::Kind::Unreadable,
         .file = action.source,
         .what = "is larger than the memory of this machine" + destinationText(action),
         .component = component});
  } else {
    progress_.expect(*length);
    payload_.add(index, *length);
  }
}

void BundleReading::readExternalSource(const std::string& component, const InstallAction& action) {
  // What an administrator supplies elsewhere may come later.
  if (paths::isAbsolute(action.entry.externalSource().value_or("")) || !action.source.starts_with(bundlePath_ + "/")) {
    return;
  }
  std::optional<foundation::Error> error;
  if (action.kind == InstallAction::Kind::ExternalDirectory) {
    if (const auto listing = files::contentsOfDirectory(action.source); !listing) {
      error = listing.error();
    }
  } else if (const auto length = files::lengthOfReadableFile(action.source); !length) {
    error = length.error();
  }
  if (error && files::exists(action.source)) {
    add(problemOfReading(action.source, component, *error));
  }
}

void BundleReading::readExecutables(const InstallRules& rules, const PropertyList& manifest) {
  const bool mayFollowAnother = !manifest_.productsForRemoval().elements().empty();
  for (const PropertyList& element : manifest[kManifestListOfExecutables].elements()) {
    const ExecutableEntry executable(element);
    const bool isOfFirstInstall = executable.runsOnce() && (rules.keepsModifiableFiles || mayFollowAnother);
    if (executable.isApplication() || !executable.runsOnInstall() || isOfFirstInstall) {
      continue;
    }
    if (auto fault = faultOfExecutable(executable)) {
      addMalformed(manifest_.getPathForComponent(rules.component), rules.component, *std::move(fault));
    }
  }
}

std::string BundleReading::indexPath() const {
  return paths::append(manifest_.manifestDirectoryPath(), kQVNManifestIndexName);
}

void BundleReading::addMalformed(const std::string& file, const std::string& component, std::string what) {
  add({.kind = BundleProblem::Kind::Malformed, .file = file, .what = std::move(what), .component = component});
}

void BundleReading::warn(std::string text) {
  if (warnings_.size() < kMostWarnings) {
    warnings_.push_back(shortened(std::move(text)));
  }
}

}  // namespace deployer
