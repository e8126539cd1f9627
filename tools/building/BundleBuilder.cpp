#include "tools/building/BundleBuilder.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <system_error>
#include <utility>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/InternalInconsistency.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/QVNInstallerState.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "tools/building/BundleAttributes.h"
#include "tools/building/DescriptionKeys.h"
#include "tools/building/Interruption.h"
#include "tools/building/OptionsPlist.h"
#include "tools/building/StagedFolder.h"

namespace bundletool {

using deployer::QVNInstallerManifest;
using foundation::PropertyList;
namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

/// Each component once, in all of its products.
std::vector<ComponentDescription> distinctComponents(const BundleDescription& description) {
  std::vector<ComponentDescription> components;
  std::map<std::string_view, std::size_t> known;
  for (const ComponentDescription& component : description.components) {
    const auto [found, isNew] = known.emplace(component.name, components.size());
    if (isNew) {
      components.push_back(component);
    } else {
      auto& products = components[found->second].products;
      products.insert(products.end(), component.products.begin(), component.products.end());
    }
  }
  return components;
}

// A bundle in the making would be scanned into itself.
bool liesBelow(const std::string& path, const std::string& folder) {
  std::error_code error;
  const auto inner = std::filesystem::canonical(path, error);
  const auto outer = error ? std::filesystem::path() : std::filesystem::canonical(folder, error);
  return !error && std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

}  // namespace

BundleBuilder::BundleBuilder(const BundleDescription& description, Settings settings, Problems& problems,
                             ProgressBar& progress)
    : description_(description),
      settings_(std::move(settings)),
      destination_(paths::append(settings_.output, deployer::kQVNInstallerApplicationName)),
      problems_(problems),
      progress_(progress) {}

std::optional<std::string> BundleBuilder::build() {
  if (!examine()) {
    return std::nullopt;
  }
  auto bundle = TemporaryBundle::make(settings_.output);
  if (!bundle) {
    problems_.error({settings_.output, "", "the bundle cannot be made here: " + bundle.error().text,
                     "choose a folder that you may write to"});
    return std::nullopt;
  }
  progress_.start(files_, bytes_);
  const bool isComplete = fill(bundle->path());
  progress_.erase();
  if (!isComplete || !mayGoOn()) {
    return std::nullopt;
  }
  if (const auto published = bundle->publish(destination_, settings_.force); !published) {
    problems_.error({destination_, "", "the bundle cannot be put in place: " + published.error().text, ""});
    return std::nullopt;
  }
  return destination_;
}

bool BundleBuilder::mayGoOn() const { return problems_.none() && !Interruption::requested(); }

bool BundleBuilder::examine() {
  examineOutput();
  examineExecutable(frontEnd(), std::string(kDescriptionFrontEnd));
  examineExecutable(engine(), std::string(kDescriptionEngine));
  if (description_.optionsPlist) {
    examineOptionsPlist(description_, problems_);
  }
  examineComponents();
  return mayGoOn();
}

void BundleBuilder::examineOutput() {
  std::error_code error;
  if (!std::filesystem::is_directory(settings_.output, error)) {
    problems_.error({settings_.output, "", "the output folder is missing or is no folder", "create it first"});
  } else if (!settings_.force && files::attributesOfItem(destination_)) {
    problems_.error({destination_, "", "the bundle is there already", "remove it, or replace it with --force"});
  }
}

void BundleBuilder::examineExecutable(const std::string& path, const std::string& key) {
  using std::filesystem::perms;
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status)) {
    (void)fail(key, foundation::format("the executable %@ is missing", path), "build it or correct the path");
  } else if (!std::filesystem::is_regular_file(status)) {
    (void)fail(key, foundation::format("%@ is no regular file", path), "name the executable file itself");
  } else if ((status.permissions() & (perms::owner_exec | perms::group_exec | perms::others_exec)) == perms::none) {
    (void)fail(key, foundation::format("%@ is not executable", path), "make it executable (chmod +x)");
  }
}

void BundleBuilder::examineComponents() {
  const std::vector<ComponentDescription> components = distinctComponents(description_);
  std::vector<ComponentItems> all;
  all.reserve(components.size());
  for (const ComponentDescription& component : components) {
    StagedFolder staged = examineStagedFolder(description_, component, problems_);
    if (liesBelow(settings_.output, component.stagedFolder)) {
      problems_.error(
          {settings_.output, "",
           foundation::format("the output folder lies in the staged folder of component %@", component.name),
           "choose a folder outside"});
    }
    files_ += staged.files * component.products.size();
    bytes_ += staged.bytes * component.products.size();
    if (component.authoringPlist) {
      AuthoringPlist byHand = examineAuthoringPlist(component, staged.items, problems_);
      std::ranges::move(byHand.items, std::back_inserter(staged.items));
      for (PayloadReference& reference : byHand.references) {
        references_.emplace_back(component.name, std::move(reference));
      }
    }
    all.push_back({&component, std::move(staged.items)});
  }
  findPathConflicts(all, problems_);
}

const std::string& BundleBuilder::engine() const {
  return description_.engine ? *description_.engine : settings_.defaultEngine;
}

const std::string& BundleBuilder::frontEnd() const {
  return description_.frontEnd ? *description_.frontEnd : settings_.defaultFrontEnd;
}

bool BundleBuilder::fill(const std::string& bundle) {
  // The size of the receipt counts whatever lies in the bundle when components are registered, so executables come
  // first.
  if (!layOut(bundle) || !addExecutable(bundle, engine(), deployer::kQVNInstallationDeployerName) ||
      !addExecutable(bundle, frontEnd(), deployer::kQVNInstallerFrontEndName)) {
    return false;
  }
  PayloadStore payload(paths::append(bundle, deployer::kQVNPayloadRootPath), problems_, progress_);
  QVNInstallerManifest manifests(bundle);
  manifests.setChecksumBlock([&payload](const std::string& path) { return payload.store(path); });
  try {
    if (!registerComponents(manifests, payload) || !registerTools(manifests) || !mergeOptions(manifests)) {
      return false;
    }
  } catch (const deployer::InternalInconsistency& inconsistency) {
    return fail("", inconsistency.what());
  }
  checkReferences(payload);
  return mayGoOn() && settleReceiptSize(manifests);
}

bool BundleBuilder::layOut(const std::string& bundle) {
  for (const auto folder :
       {deployer::kQVNExecutablesPath, deployer::kQVNManifestDirectoryPath, deployer::kQVNPayloadRootPath}) {
    const std::string path = paths::append(bundle, folder);
    if (const auto made = files::createDirectory(path, true, kBundleFolderAttributes); !made) {
      problems_.error({path, "", "the folder cannot be made: " + made.error().text, ""});
      return false;
    }
  }
  return true;
}

bool BundleBuilder::addExecutable(const std::string& bundle, const std::string& source, std::string_view name) {
  foundation::FileBuffer buffer;
  const auto content = files::read(source, buffer);
  if (!content) {
    problems_.error({source, "", "the executable cannot be read: " + content.error().text, "make it readable"});
    return false;
  }
  const std::string path = paths::append(paths::append(bundle, deployer::kQVNExecutablesPath), name);
  if (const auto written = files::writeAtomically(*content, path, kBundleExecutableAttributes); !written) {
    problems_.error({path, "", "the executable cannot be written: " + written.error().text, ""});
    return false;
  }
  return true;
}

bool BundleBuilder::registerComponents(QVNInstallerManifest& manifests, PayloadStore& payload) {
  for (const ComponentDescription& component : description_.components) {
    if (!registerComponent(manifests, payload, component)) {
      return false;
    }
  }
  return true;
}

bool BundleBuilder::registerComponent(QVNInstallerManifest& manifests, PayloadStore& payload,
                                      const ComponentDescription& component) {
  if (!payload.beginComponent(component.name)) {
    return false;
  }
  for (const std::string& product : component.products) {
    const bool added = manifests.addComponentManifest(component.name, component.version, component.stagedFolder,
                                                      component.rootPrefix, product, component.authoringPlist);
    if (!mayGoOn()) {
      return false;
    }
    if (!added || manifests.installerState() != deployer::QVNInstallerStateSuccess) {
      return fail(component.key,
                  foundation::format("component %@ cannot be added to product %@", component.name, product),
                  "see the messages above");
    }
  }
  return true;
}

bool BundleBuilder::registerTools(QVNInstallerManifest& manifests) {
  for (const ExternalToolDescription& tool : description_.externalTools) {
    if (!manifests.updateManifestIndexForExternalTool(tool.bundlePath, tool.externalProduct, tool.product)) {
      return fail(tool.key, "the external tool cannot be recorded", "see the messages above");
    }
  }
  return true;
}

bool BundleBuilder::mergeOptions(QVNInstallerManifest& manifests) {
  return manifests.updateManifestIndexWithOptions(description_.options, description_.optionsPlist) ||
         fail(std::string(kDescriptionOptions), "the options cannot be recorded", "see the messages above");
}

void BundleBuilder::checkReferences(const PayloadStore& payload) {
  for (const auto& [component, reference] : references_) {
    if (!payload.holds(component, reference.checksum)) {
      problems_.error(
          {reference.file, reference.key,
           foundation::format("no staged file of component %@ has the checksum %@", component, reference.checksum),
           "stage the file, or correct the checksum"});
    }
  }
}

// Recording the size changes the index and with it the size; the number of digits grows at most once, so this ends.
bool BundleBuilder::settleReceiptSize(QVNInstallerManifest& manifests) {
  constexpr int kAttempts = 4;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const PropertyList index = manifests.manifestIndex();
    const std::int64_t size = manifests.sizeOfReceipt();
    if (index[deployer::kManifestIndexReceiptSize].integer() == size) {
      return true;
    }
    if (!manifests.writeManifestIndex(index.with(deployer::kManifestIndexReceiptSize, size))) {
      return fail("", "the index cannot be written", "see the messages above");
    }
  }
  return fail("", "the size of the receipt does not settle", "see that nothing else writes into the output folder");
}

bool BundleBuilder::fail(const std::string& key, const std::string& what, const std::string& advice) {
  problems_.error({description_.file, key, what, advice});
  return false;
}

}  // namespace bundletool
