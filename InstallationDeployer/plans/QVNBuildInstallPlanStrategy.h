#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/Error.h"

namespace deployer {

class ReceiptContext;
class ReceiptConversation;

/// Fills the plan of an install: every component on a fresh machine; over an installed product what is new, changed, no
/// longer part of the product or has other external files, and what the installed product's own check wants repaired.
class QVNBuildInstallPlanStrategy : public QVNInstallStepStrategy {
 public:
  /// @param receipts the part of the run that has to do with receipts; it outlives this step.
  QVNBuildInstallPlanStrategy(PropertyList installPhaseDictionary, std::string stepName,
                              QVNInstallStepStrategy* parentStep, StepContext& controller, SharedPlan plan,
                              ReceiptContext& receipts);

  /// Components to install over the installed ones, each once. Versions are compared for equality only.
  /// @param components the installed product's record of names and versions; nil for none.
  /// @return nothing on failure; the step's state tells which.
  [[nodiscard]] std::optional<Plan> upgradePlanForComponents(const PropertyList& components);
  /// Half way, always: how long the work takes is not known.
  [[nodiscard]] std::uint64_t getProgress() override;
  [[nodiscard]] std::string_view className() const override { return "QVNBuildInstallPlanStrategy"; }

 private:
  class UpgradePlan;

  [[nodiscard]] bool work() override;
  void planFreshInstall();
  /// Fills the plan with what to upgrade and what to repair, as the installed product's receipt tells.
  bool planUpgrade();
  [[nodiscard]] bool canPlanUpgrade();
  /// Both say no, with the step's state set, when the receipt could not be asked or could not tell.
  bool askForInstalledComponents(ReceiptConversation& receipt, PropertyList& records);
  bool askForFixPlan(ReceiptConversation& receipt, Plan& fixPlan);
  void addDamagedComponents(const Plan& productComponents, UpgradePlan& upgrade);
  [[nodiscard]] bool addInstalledComponents(const PropertyList& records, const Plan& productComponents,
                                            UpgradePlan& upgrade);
  [[nodiscard]] bool addNewComponents(const Plan& productComponents, UpgradePlan& upgrade);
  /// The component's manifest; nothing, with the manifest's failure state, when it could not be read.
  [[nodiscard]] std::optional<PropertyList> readableManifest(const std::string& component);
  [[nodiscard]] bool addForChangedExternalFiles(const std::string& component, UpgradePlan& upgrade);
  /// Whether the external item and its installed copy differ; nothing when that could not be found out.
  [[nodiscard]] std::optional<bool> externalDirectoryDiffers(const std::string& externalPath,
                                                             const std::string& installedPath);
  [[nodiscard]] std::optional<bool> externalFileDiffers(const std::string& externalPath,
                                                        const std::string& installedPath);
  [[nodiscard]] std::optional<bool> itemsDiffer(const std::string& externalPath, const std::string& installedPath);
  [[nodiscard]] std::optional<Plan> listingOrEmpty(const std::string& directory);
  /// Fails the step and is the answer of whoever needed to know.
  std::nullopt_t unreadable(std::string_view message, const foundation::Error& error);

  ReceiptContext& receipts_;
  bool couldNotLook_ = false;
};

}  // namespace deployer
