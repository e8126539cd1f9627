#include "tools/building/BundleBuilder.h"

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
#include "tools/building/TemporaryBundle.h"

namespace bundletool {

using deployer::QVNInstallerManifest;
using foundation::PropertyList;
namespace files = foundation::files;
namespace paths = foundation::paths;

BundleBuilder::BundleBuilder(const BundleDescription& description, BundleSettings settings, Problems& problems,
                             ProgressBar& progress)
    : description_(description), settings_(std::move(settings)), problems_(problems), progress_(progress) {}

std::optional<std::string> BundleBuilder::build() {
  for (const std::string& name : description_.silencedWarnings) {
    problems_.silence(name);
  }
  material_ = examineMaterial(description_, settings_, problems_);
  if (!mayGoOn()) {
    return std::nullopt;
  }
  auto bundle = TemporaryBundle::make(settings_.output);
  if (!bundle) {
    problems_.error({settings_.output, "", "the bundle cannot be made here: " + bundle.error().text,
                     "choose a folder that you may write to"});
    return std::nullopt;
  }
  progress_.start(material_.files, material_.bytes);
  const bool isComplete = fill(bundle->path());
  progress_.erase();
  if (!isComplete || !mayGoOn()) {
    return std::nullopt;
  }
  if (const auto published = bundle->publish(material_.destination, settings_.force); !published) {
    problems_.error({material_.destination, "", "the bundle cannot be put in place: " + published.error().text, ""});
    return std::nullopt;
  }
  return material_.destination;
}

bool BundleBuilder::mayGoOn() const { return problems_.none() && !Interruption::requested(); }

bool BundleBuilder::fill(const std::string& bundle) {
  // The size of the receipt counts whatever lies in the bundle when components are registered, so executables come
  // first.
  if (!layOut(bundle) || !addExecutable(bundle, material_.engine, deployer::kQVNInstallationDeployerName) ||
      !addExecutable(bundle, material_.frontEnd, deployer::kQVNInstallerFrontEndName)) {
    return false;
  }
  PayloadStore payload(paths::append(bundle, deployer::kQVNPayloadRootPath), problems_, progress_);
  QVNInstallerManifest manifests(bundle);
  manifests.setRecordsRootAsOwner(material_.rootOwnerGroup);
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
  for (const PayloadReference& reference : material_.references) {
    if (!payload.holds(reference.component, reference.checksum)) {
      problems_.error({reference.file, reference.key,
                       foundation::format("no staged file of component %@ has the checksum %@", reference.component,
                                          reference.checksum),
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
