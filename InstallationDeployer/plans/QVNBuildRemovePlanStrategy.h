#pragma once

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Fills the plan of a removal with every component of the installed product. Runs from the receipt only.
class QVNBuildRemovePlanStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNBuildRemovePlanStrategy"; }

 private:
  [[nodiscard]] bool work() override;
};

}  // namespace deployer
