#include <utility>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/install/QVNInstallComponentsStrategy.h"
#include "InstallationDeployer/installed/QVNCacheComponentStrategy.h"
#include "InstallationDeployer/installed/QVNRemoveComponentsStrategy.h"
#include "InstallationDeployer/installed/QVNRestoreCacheComponentStrategy.h"
#include "InstallationDeployer/nested/QVNExternalInstallationDeployerStrategy.h"
#include "InstallationDeployer/plans/QVNBuildInstallPlanStrategy.h"
#include "InstallationDeployer/plans/QVNBuildRemovePlanStrategy.h"
#include "InstallationDeployer/processes/QVNProcessStartStrategy.h"
#include "InstallationDeployer/processes/QVNProcessStopStrategy.h"
#include "InstallationDeployer/receipt/QVNReceiptRemoveStrategy.h"
#include "InstallationDeployer/receipt/QVNReceiptServiceStrategy.h"
#include "InstallationDeployer/receipt/QVNRemoveReceiptStrategy.h"
#include "InstallationDeployer/receipt/QVNWriteReceiptStrategy.h"
#include "InstallationDeployer/receipt/ReceiptLeftovers.h"
#include "InstallationDeployer/run/QVNInstallController.h"
#include "InstallationDeployer/steps/QVNAggregateInstallStrategy.h"
#include "general/foundation/Paths.h"
#include "general/foundation/extensions/NSDictionaryExtensions.h"
#include "general/logging/SystemLog.h"

// Which steps a run consists of, under which names, on which plans.
namespace deployer {

namespace paths = foundation::paths;
using foundation::NSDictionaryExtensions::boolForKey;

namespace {

constexpr bool kRunLocally = true;

void moveInto(StepList& steps, StepList more) {
  for (auto& step : more) {
    steps.push_back(std::move(step));
  }
}

}  // namespace

template <class Step, class... Arguments>
void QVNInstallController::append(StepList& steps, const PropertyList& phase, std::string name, const SharedPlan& plan,
                                  Arguments&&... arguments) {
  steps.push_back(
      std::make_unique<Step>(phase, std::move(name), nullptr, *this, plan, std::forward<Arguments>(arguments)...));
}

void QVNInstallController::buildAndRunStrategies() {
  if (!configuration_.receipt()) {
    sweepReceiptLeftovers(configuration_);
  }
  configuration_.setHasInstallerReceipt(productHasReceipt());
  if (hasFailed()) {
    return;
  }
  if (!journal().open(productLocks_.holderBefore(productName()))) {
    setInstallerState(QVNInstallerStateFailed);
    return;
  }
  strategy_ = buildStrategies();
  watchedStrategy_ = strategy_.get();
  checkComponentManifests();
  if (hasFailed() || !strategy_) {
    return;
  }
  const bool success = strategy_->execute(true);
  logging::notice("\"%@\" success: %@", strategy_->qualifiedName(), success ? "YES" : "NO");
  // A run that took what it could not read for nothing did not do what it was asked for.
  const bool isTrue = !manifest().couldNotRead() || strategy_->installerState() != QVNInstallerStateSuccess;
  setInstallerState(isTrue ? strategy_->installerState() : QVNInstallerStateFailed);
}

void QVNInstallController::checkComponentManifests() {
  if (hasFailed() || !configuration_.install()) {
    return;
  }
  const PropertyList phases = manifest().arrayOfInstallPhasesForProduct(productName());
  for (const PropertyList& phase : phases.elements()) {
    if (!manifest().canRead(phase[kManifestIndexListOfComponents].strings())) {
      setInstallerState(QVNInstallerStateFailed);
      return;
    }
  }
  const PropertyList& first = phases.at(0);
  if (first[kQVNInstallPhaseType].string() == kQVNInstallPhaseLocalPayload) {
    warnOfMissingManifests(first[kManifestIndexListOfComponents].strings());
  }
}

void QVNInstallController::warnOfMissingManifests(const std::vector<std::string>& components) {
  for (const std::string& component : components) {
    if (manifest().getManifestForComponent(component).isNil()) {
      logging::warning("The manifest of component %@ is missing or damaged: %@. It contributes nothing.", component,
                       manifest().getPathForComponent(component));
    }
  }
}

std::unique_ptr<QVNInstallStepStrategy> QVNInstallController::buildStrategies() {
  if (configuration_.install()) {
    return buildInstallTree();
  }
  return configuration_.receipt() ? buildReceiptTree() : buildRemovalTree();
}

std::unique_ptr<QVNInstallStepStrategy> QVNInstallController::buildInstallTree() {
  const PropertyList phases = manifest().arrayOfInstallPhasesForProduct(productName());
  if (!phases.isArray()) {
    logging::error("The product %@ does not exist in the manifest. InstallPhaseDictionaries = %@", productName(),
                   phases);
    notifyInstallFailure();
    return nullptr;
  }
  StepList steps;
  const auto installPlan = std::make_shared<Plan>();
  const auto removalPlan = std::make_shared<Plan>();
  StepList removalSteps = preInstallRemovalStepsWithPlan(removalPlan);
  if (hasFailed()) {
    cleanupFailedInstall();
    return nullptr;
  }
  moveInto(steps, std::move(removalSteps));
  for (const PropertyList& phase : phases.elements()) {
    appendStepsForPhase(phase, installPlan, removalPlan, steps);
    if (steps.empty()) {
      logging::error("No strategy created for install phaseDictionary dictionary: %@", phase);
      setInstallerState(QVNInstallerStateFailed);
      break;
    }
  }
  append<QVNWriteReceiptStrategy>(steps, {}, "writeReceipt", installPlan);
  logging::debug("installSteps = %@", descriptionsOf(steps));
  return std::make_unique<QVNAggregateInstallStrategy>(PropertyList(), "installer", std::move(steps), nullptr, *this);
}

void QVNInstallController::appendStepsForPhase(const PropertyList& phase, const SharedPlan& installPlan,
                                               const SharedPlan& removalPlan, StepList& steps) {
  const auto type = phase[kQVNInstallPhaseType].string();
  if (type == kQVNInstallPhaseLocalPayload) {
    append<QVNBuildInstallPlanStrategy>(steps, phase, "localPayload.buildPlan", installPlan, *this);
    append<QVNReceiptRemoveStrategy>(steps, {}, "localPayload.remoteRemove", installPlan, *this);
    append<QVNInstallComponentsStrategy>(steps, phase, "localPayload.installComponents", installPlan);
    moveInto(steps, postInstallRemovalStepsWithPlan(removalPlan));
    append<QVNProcessStartStrategy>(steps, phase, "localPayload.launchServices", installPlan);
  } else if (type == kQVNInstallPhaseExternalInstallationDeployer) {
    append<QVNExternalInstallationDeployerStrategy>(steps, phase, "externalDeployer", installPlan);
  }
}

std::unique_ptr<QVNInstallStepStrategy> QVNInstallController::buildReceiptTree() {
  logging::info("Running as receipt for product %@", configuration_.productName());
  return std::make_unique<QVNReceiptServiceStrategy>(PropertyList(), "receiptService", nullptr, *this, nullptr, *this);
}

std::unique_ptr<QVNInstallStepStrategy> QVNInstallController::buildRemovalTree() {
  StepList steps;
  const auto removalPlan = std::make_shared<Plan>();
  append<QVNBuildRemovePlanStrategy>(steps, {}, "buildRemovePlan", removalPlan);
  append<QVNProcessStopStrategy>(steps, {}, "stopProcesses", removalPlan, !kRunLocally);
  append<QVNRemoveComponentsStrategy>(steps, {}, "removeFiles", removalPlan, !kRunLocally);
  moveInto(steps, cleanupStepsWithPlan());
  append<QVNRemoveReceiptStrategy>(steps, {}, "removeReceipt", removalPlan);
  logging::debug("removeSteps = %@", descriptionsOf(steps));
  return std::make_unique<QVNAggregateInstallStrategy>(PropertyList(), "remover", std::move(steps), nullptr, *this);
}

StepList QVNInstallController::cleanupStepsWithPlan() {
  const PropertyList index = manifest().manifestIndex();
  const auto cleanupPlan =
      std::make_shared<Plan>(index[kManifestIndexProductCleanup][kManifestIndexListOfComponents].strings());
  StepList steps;
  if (!cleanupPlan->empty()) {
    append<QVNProcessStopStrategy>(steps, {}, "cleanup.stopProcesses", cleanupPlan, kRunLocally);
    append<QVNRemoveComponentsStrategy>(steps, {}, "cleanup.removeComponents", cleanupPlan, kRunLocally);
  }
  return steps;
}

StepList QVNInstallController::preInstallRemovalStepsWithPlan(const SharedPlan& removalPlan) {
  configuration_.setHasInstallerReceipt(productHasReceipt());
  if (configuration_.hasInstallerReceipt()) {
    logging::notice("Upgrading the \"%@\" product", productName());
    return {};
  }
  const PropertyList crossGrades = manifest().crossGradeDictionariesForProduct(productName());
  for (const PropertyList& crossGrade : crossGrades.elements()) {
    const auto other = crossGrade[kManifestIndexProductName].string();
    if (!other ||
        !isPresent(paths::append(paths::append(kQVNInstallerReceiptPath, *other), kQVNInstallerApplicationName))) {
      continue;
    }
    if (!boolForKey(crossGrade, kManifestIndexAllowCrossGrades)) {
      refuseCrossGrade(crossGrade[kManifestIndexProductName]);
    } else {
      // The other product's own receipt takes care of its removal.
      announceCrossGrade(*other, boolForKey(crossGrade, kManifestIndexTreatAsUpdate));
    }
    return {};
  }
  const PropertyList removable = manifest().productsForRemoval();
  for (const PropertyList& detected : removable.elements()) {
    if (detected.isDictionary() && productIsDetectedFor(detected)) {
      return removalStepsForDetectedProduct(detected, crossGrades, removalPlan);
    }
  }
  if (hasFailed()) {
    return {};
  }
  // An interrupted update has removed the older product already; what it was taken for stays.
  configuration_.setTreatAsUpdate(journal().continuesUpdate());
  logging::notice("Fresh install of the \"%@\" product.", productName());
  return {};
}

StepList QVNInstallController::removalStepsForDetectedProduct(const PropertyList& detected,
                                                              const PropertyList& crossGrades,
                                                              const SharedPlan& removalPlan) {
  const PropertyList& detectedName = detected[kManifestIndexProductName];
  const PropertyList* match = nullptr;
  for (const PropertyList& crossGrade : crossGrades.elements()) {
    if (detectedName.isString() && crossGrade[kManifestIndexProductName] == detectedName) {
      match = &crossGrade;
      break;
    }
  }
  if (match == nullptr || !boolForKey(*match, kManifestIndexAllowCrossGrades)) {
    refuseCrossGrade(detectedName);
    return {};
  }
  configuration_.setTreatAsUpdate(boolForKey(*match, kManifestIndexTreatAsUpdate));
  announceCrossGrade(detectedName.text(), configuration_.treatAsUpdate());
  const std::vector<std::string> components = detected[kManifestIndexListOfComponents].strings();
  removalPlan->insert(removalPlan->end(), components.begin(), components.end());

  StepList steps;
  if (configuration_.treatAsUpdate()) {
    append<QVNCacheComponentStrategy>(steps, {}, "preinstall.cacheComponent", removalPlan);
  }
  append<QVNProcessStopStrategy>(steps, {}, "preinstall.stopProcesses", removalPlan, kRunLocally);
  append<QVNRemoveComponentsStrategy>(steps, {}, "preinstall.removeComponents", removalPlan, kRunLocally);
  return steps;
}

StepList QVNInstallController::postInstallRemovalStepsWithPlan(const SharedPlan& removalPlan) {
  StepList steps;
  // What an interrupted run owes is put back whatever is installed by now.
  if (!changes().owedFiles().empty() || (configuration_.treatAsUpdate() && !removalPlan->empty())) {
    append<QVNRestoreCacheComponentStrategy>(steps, {}, "postinstall.restoreCacheComponent", removalPlan);
  }
  return steps;
}

void QVNInstallController::refuseCrossGrade(const PropertyList& installedProduct) {
  logging::error(
      "The \"%@\" product is already installed. Remove the existing product before installing the \"%@\" product.",
      installedProduct, productName());
  setInstallerState(QVNInstallerStateIncompatibleProduct);
}

void QVNInstallController::announceCrossGrade(std::string_view installedProduct, bool asUpdate) {
  logging::notice("Installing the \"%@\" product. Detected the \"%@\" product. %@", productName(), installedProduct,
                  asUpdate ? "The previous product will be treated as an update."
                           : "The previous product will be removed and the new product will be installed.");
}

}  // namespace deployer
