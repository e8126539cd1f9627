#include "InstallationDeployer/plans/QVNBuildRemovePlanStrategy.h"

#include <algorithm>
#include <utility>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::Result;
using foundation::Status;
namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

Result<Plan> namesIn(const std::string& folder) {
  auto names = files::contentsOfDirectory(folder);
  return names || !names.error().isNoSuchFile() ? std::move(names) : Result<Plan>(Plan());
}

}  // namespace

bool QVNBuildRemovePlanStrategy::work() {
  if (!requireReceiptLocation()) {
    return false;
  }
  const PropertyList records = manifest().componentsAndVersionsForProduct(productName());
  if (!plan()) {
    if (installerState() != QVNInstallerStateSuccess) {
      logging::error("Unable to acquire removal plan");
      return false;
    }
    return true;
  }
  plan()->clear();
  for (const PropertyList& record : records.elements()) {
    logging::debug("componentNameAndVersion = %@", record);
    plan()->emplace_back(record[kManifestComponentName].text());
  }
  if (records.isNil()) {
    auto known = knownComponents();
    if (!known) {
      return fail("Unable to read directory contents. %@", known.error());
    }
    *plan() = *std::move(known);
  }
  if (!canReadWhatIsRemoved(*plan())) {
    return failWith();
  }
  warnOfMissingManifests(*plan());
  return true;
}

bool QVNBuildRemovePlanStrategy::canReadWhatIsRemoved(const Plan& components) {
  const Plan cleanup =
      manifest().manifestIndex()[kManifestIndexProductCleanup][kManifestIndexListOfComponents].strings();
  // What is cleaned up besides need not be known here.
  std::ranges::for_each(cleanup, [this](const std::string& component) { manifest().goOnWithout(component); });
  return manifest().canRead(components) && manifest().canRead(cleanup);
}

Result<Plan> QVNBuildRemovePlanStrategy::knownComponents() {
  if (!manifest().manifestIndex().isNil()) {
    return manifest().componentListForProduct(productName()).value_or(Plan());
  }
  if (!manifest().couldNotRead()) {
    logging::warning(
        "The manifest index is missing or damaged: %@. The components are those whose manifests are there.",
        paths::append(manifest().manifestDirectoryPath(), kQVNManifestIndexName));
  }
  return componentsWithManifests();
}

Result<Plan> QVNBuildRemovePlanStrategy::componentsWithManifests() {
  auto names = namesIn(manifest().manifestDirectoryPath());
  if (!names) {
    return names;
  }
  Plan components;
  for (const std::string& name : *names) {
    const std::string component = paths::deleteExtension(name);
    if (name != kQVNManifestIndexName && paths::appendExtension(component, kQVNManifestExtension) == name) {
      components.push_back(component);
    }
  }
  if (const Status left = leaveOutThoseOfOtherProducts(components); !left) {
    return left.error();
  }
  return components;
}

Status QVNBuildRemovePlanStrategy::leaveOutThoseOfOtherProducts(Plan& components) {
  const std::string location(kQVNInstallerReceiptPath);
  const auto products = namesIn(location);
  if (!products) {
    return products.error();
  }
  for (const std::string& product : *products) {
    if (product == productName()) {
      continue;
    }
    QVNInstallerManifest other(paths::append(paths::append(location, product), kQVNInstallerApplicationName));
    for (const std::string& component : other.componentListForProduct(product).value_or(Plan())) {
      std::erase(components, component);
    }
    if (other.couldNotRead()) {
      return foundation::fileError(foundation::kReadUnknown, "What another product consists of could not be read.",
                                   other.installerPath());
    }
  }
  return {};
}

void QVNBuildRemovePlanStrategy::warnOfMissingManifests(const Plan& components) {
  for (const std::string& component : components) {
    if (manifest().getManifestForComponent(component).isNil()) {
      logging::warning("The manifest of component %@ is missing or damaged: %@. Its files stay.", component,
                       manifest().getPathForComponent(component));
      manifest().goOnWithout(component);
    }
  }
}

}  // namespace deployer
