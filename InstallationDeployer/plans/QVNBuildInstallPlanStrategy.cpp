#include "InstallationDeployer/plans/QVNBuildInstallPlanStrategy.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/receipt/ReceiptConversation.h"
#include "general/foundation/Paths.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"

namespace deployer {

namespace files = foundation::files;
namespace paths = foundation::paths;

namespace {

constexpr std::string_view kUpgradePlanSelector = "upgradePlanForComponents:";
constexpr std::uint64_t kHalfWay = 50;

}  // namespace

/// The components to upgrade: a set that remembers the order of its making.
class QVNBuildInstallPlanStrategy::UpgradePlan {
 public:
  void add(const std::string& component) {
    if (members_.insert(component).second) {
      components_.push_back(component);
    }
  }
  [[nodiscard]] bool contains(const std::string& component) const { return members_.contains(component); }
  [[nodiscard]] const Plan& components() const { return components_; }

  void noteInstalled(std::string component) { installed_.insert(std::move(component)); }
  [[nodiscard]] bool isInstalled(const std::string& component) const { return installed_.contains(component); }

 private:
  Plan components_;
  std::unordered_set<std::string> members_;
  std::unordered_set<std::string> installed_;
};

QVNBuildInstallPlanStrategy::QVNBuildInstallPlanStrategy(PropertyList installPhaseDictionary, std::string stepName,
                                                         QVNInstallStepStrategy* parentStep, StepContext& controller,
                                                         SharedPlan plan, ReceiptContext& receipts)
    : QVNInstallStepStrategy(std::move(installPhaseDictionary), std::move(stepName), parentStep, controller,
                             std::move(plan)),
      receipts_(receipts) {}

bool QVNBuildInstallPlanStrategy::work() {
  if (!configuration().hasInstallerReceipt()) {
    planFreshInstall();
    return true;
  }
  return canPlanUpgrade() && planUpgrade();
}

void QVNBuildInstallPlanStrategy::planFreshInstall() {
  const auto components = manifest().componentListForProduct(productName());
  if (components && plan()) {
    plan()->insert(plan()->end(), components->begin(), components->end());
  }
}

bool QVNBuildInstallPlanStrategy::canPlanUpgrade() {
  const auto& product = configuration().productName();
  if (!product) {
    return fail("Unable to determine product name");
  }
  if (!manifest().componentListForProduct(*product)) {
    return failWith(static_cast<QVNInstallerState>(manifest().installerState()),
                    "Unable to determine list of components for product(%@)", product);
  }
  return true;
}

bool QVNBuildInstallPlanStrategy::planUpgrade() {
  auto receipt = ReceiptConversation::begin(*this, receipts_);
  if (!receipt) {
    return false;
  }
  PropertyList records;
  if (!askForInstalledComponents(*receipt, records)) {
    return false;
  }
  UpgradePlan combined;
  for (const std::string& component : upgradePlanForComponents(records).value_or(Plan{})) {
    combined.add(component);
  }
  if (couldNotLook_ || manifest().couldNotRead()) {
    // A plan without what should have been compared would end as one with nothing to do.
    return failWith();
  }
  Plan fixPlan;
  if (!askForFixPlan(*receipt, fixPlan)) {
    return false;
  }
  for (const std::string& component : fixPlan) {
    combined.add(component);
  }
  if (plan()) {
    *plan() = combined.components();
  }
  return true;
}

bool QVNBuildInstallPlanStrategy::askForInstalledComponents(ReceiptConversation& receipt, PropertyList& records) {
  auto told = receipt.componentsAndVersions();
  if (!told) {
    return false;
  }
  records = std::move(*told);
  controller().changes().noteInstalled(records);
  return !records.isNil() || receipt.takeOverState("Unable to acquire upgrade plan");
}

bool QVNBuildInstallPlanStrategy::askForFixPlan(ReceiptConversation& receipt, Plan& fixPlan) {
  auto told = receipt.fixPlanForValidation();
  if (!told) {
    return false;
  }
  const bool isTold = told->has_value();
  fixPlan = std::move(*told).value_or(Plan{});
  return isTold || receipt.takeOverState("Unable to acquire fix plan, or fix plan is invalid");
}

std::uint64_t QVNBuildInstallPlanStrategy::getProgress() { return kHalfWay; }

std::optional<Plan> QVNBuildInstallPlanStrategy::upgradePlanForComponents(const PropertyList& components) {
  logging::debug("%s: receiptComponentsAndVersions = %@", kUpgradePlanSelector, components);
  const auto& product = configuration().productName();
  if (!product) {
    fail("Receipt unable to determine product name");
    return std::nullopt;
  }
  const auto productComponents = manifest().componentListForProduct(*product);
  if (!productComponents) {
    failWith(static_cast<QVNInstallerState>(manifest().installerState()),
             "Receipt unable to determine list of components.");
    return std::nullopt;
  }
  UpgradePlan upgrade;
  addDamagedComponents(*productComponents, upgrade);
  if (!addInstalledComponents(components, *productComponents, upgrade) ||
      !addNewComponents(*productComponents, upgrade)) {
    return std::nullopt;
  }
  if (upgrade.components().empty()) {
    logging::notice("Upgrade plan is empty. Nothing to upgrade");
  } else {
    logging::notice("Upgrade plan is: %@", planDescription(upgrade.components()));
  }
  setInstallerState(QVNInstallerStateSuccess);
  return upgrade.components();
}

void QVNBuildInstallPlanStrategy::addDamagedComponents(const Plan& productComponents, UpgradePlan& upgrade) {
  for (const std::string& component : controller().changes().damagedComponents()) {
    if (std::ranges::find(productComponents, component) != productComponents.end()) {
      logging::info("Adding component %@ to upgrade plan, an interrupted run may have left it half changed", component);
      upgrade.add(component);
    }
  }
}

bool QVNBuildInstallPlanStrategy::addInstalledComponents(const PropertyList& records, const Plan& productComponents,
                                                         UpgradePlan& upgrade) {
  const std::unordered_set<std::string_view> listed(productComponents.begin(), productComponents.end());
  for (const PropertyList& record : records.elements()) {
    const std::string component(record[kManifestComponentName].text());
    if (component.empty()) {
      // A receipt of another version may say what this engine does not understand.
      continue;
    }
    upgrade.noteInstalled(component);
    if (!listed.contains(component)) {
      // What the new product dropped stays in the plan, so that its files are taken care of.
      logging::info("Adding component %@ to upgrade plan", component);
      upgrade.add(component);
      continue;
    }
    const auto newManifest = readableManifest(component);
    if (!newManifest) {
      return false;
    }
    const auto newVersion = (*newManifest)[kManifestComponentVersion].string();
    if (!newVersion || newVersion != record[kManifestComponentVersion].string()) {
      logging::info("Adding changed component %@ to upgrade plan", component);
      upgrade.add(component);
    }
  }
  return true;
}

bool QVNBuildInstallPlanStrategy::addNewComponents(const Plan& productComponents, UpgradePlan& upgrade) {
  for (const std::string& component : productComponents) {
    if (!upgrade.isInstalled(component)) {
      logging::info("Adding component %@ to upgrade plan", component);
      upgrade.add(component);
    }
    if (!upgrade.contains(component) && !addForChangedExternalFiles(component, upgrade)) {
      return false;
    }
  }
  return true;
}

std::optional<foundation::PropertyList> QVNBuildInstallPlanStrategy::readableManifest(const std::string& component) {
  PropertyList found = manifest().getManifestForComponent(component);
  const auto manifestState = static_cast<QVNInstallerState>(manifest().installerState());
  if (found.isNil() && isFailureState(manifestState)) {
    setInstallerState(manifestState);
    return std::nullopt;
  }
  return found;
}

bool QVNBuildInstallPlanStrategy::addForChangedExternalFiles(const std::string& component, UpgradePlan& upgrade) {
  const auto componentManifest = readableManifest(component);
  if (!componentManifest) {
    return false;
  }
  for (const FileEntry& entry : fileEntriesOf(*componentManifest)) {
    const auto source = entry.externalSource();
    if (!source || !entry.checksForExternalChanges()) {
      continue;
    }
    const std::string externalPath = paths::resolve(controller().installerRootPath(), *source);
    logging::debug("#### checking external source: %s: externalSourcePath = %@", kUpgradePlanSelector, externalPath);
    const std::string installedPath(entry.listedPath().text());
    if (entry.isDirectory()) {
      const auto differs = externalDirectoryDiffers(externalPath, installedPath);
      if (!differs) {
        return false;
      }
      if (*differs) {
        logging::info("Adding component %@ to upgrade plan", component);
        upgrade.add(component);
      }
      continue;
    }
    const auto differs = externalFileDiffers(externalPath, installedPath);
    if (!differs) {
      return false;
    }
    if (*differs) {
      logging::info("Adding component %@ to upgrade plan due to external file change", component);
      upgrade.add(component);
      return true;
    }
  }
  return true;
}

std::optional<bool> QVNBuildInstallPlanStrategy::externalDirectoryDiffers(const std::string& externalPath,
                                                                          const std::string& installedPath) {
  const auto externalNames = listingOrEmpty(externalPath);
  if (!externalNames) {
    return std::nullopt;
  }
  logging::debug("#### external directory cheking: %s: externalDirectoryContents.count = %lu", kUpgradePlanSelector,
                 externalNames->size());
  const auto installedNames = listingOrEmpty(installedPath);
  if (!installedNames) {
    return std::nullopt;
  }
  if (externalNames->size() != installedNames->size()) {
    return true;
  }
  const std::unordered_set<std::string_view> installed(installedNames->begin(), installedNames->end());
  for (const std::string& name : *externalNames) {
    if (!installed.contains(name)) {
      return true;
    }
    const auto differs = itemsDiffer(paths::append(externalPath, name), paths::append(installedPath, name));
    if (!differs || *differs) {
      return differs;
    }
  }
  return false;
}

std::optional<bool> QVNBuildInstallPlanStrategy::externalFileDiffers(const std::string& externalPath,
                                                                     const std::string& installedPath) {
  const auto isInstalled = files::presence(installedPath);
  const auto isOffered = files::presence(externalPath);
  if (!isInstalled || !isOffered) {
    return unreadable("Unable to read attributes. %@", isInstalled ? isOffered.error() : isInstalled.error());
  }
  return *isInstalled != *isOffered ? true : itemsDiffer(externalPath, installedPath);
}

std::optional<bool> QVNBuildInstallPlanStrategy::itemsDiffer(const std::string& externalPath,
                                                             const std::string& installedPath) {
  constexpr std::string_view kUnreadable = "Unable to read attributes. %@";
  const auto external = files::attributesOfItem(externalPath);
  if (!external) {
    return unreadable(kUnreadable, external.error());
  }
  const auto installed = files::attributesOfItem(installedPath);
  if (!installed) {
    return unreadable(kUnreadable, installed.error());
  }
  return external->type != installed->type || external->size != installed->size;
}

std::optional<Plan> QVNBuildInstallPlanStrategy::listingOrEmpty(const std::string& directory) {
  auto listing = files::contentsOfDirectory(directory);
  if (listing) {
    return std::move(listing).value();
  }
  if (listing.error().isNoSuchFile()) {
    return Plan{};
  }
  return unreadable("Unable to read directory contents. %@", listing.error());
}

std::nullopt_t QVNBuildInstallPlanStrategy::unreadable(std::string_view message, const foundation::Error& error) {
  // What is not there tells something about the machine; anything else only that it could not be looked at.
  couldNotLook_ = couldNotLook_ || !error.meansNothingThere();
  fail(message, error);
  return std::nullopt;
}

}  // namespace deployer
