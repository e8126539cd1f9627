#pragma once

#include <string>

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/Result.h"

namespace deployer {

/// Fills the plan of a removal with every component of the installed product. Runs from the receipt only.
///
/// Nothing is removed on the word of a receipt that cannot be read: the step fails then, before anything was done. What
/// is missing in it is said in a warning, and the removal goes on with what is known: without a component's manifest
/// that component's files stay, and without the index the components are those whose manifests are there, but for those
/// that the receipt of another product counts as its own.
class QVNBuildRemovePlanStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNBuildRemovePlanStrategy"; }

 private:
  [[nodiscard]] bool work() override;
  [[nodiscard]] bool canReadWhatIsRemoved(const Plan& components);
  [[nodiscard]] foundation::Result<Plan> knownComponents();
  [[nodiscard]] foundation::Result<Plan> componentsWithManifests();
  [[nodiscard]] foundation::Status leaveOutThoseOfOtherProducts(Plan& components);
  void warnOfMissingManifests(const Plan& components);
};

}  // namespace deployer
