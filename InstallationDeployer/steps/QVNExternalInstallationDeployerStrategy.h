#pragma once

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Hands a phase to an engine in another bundle.
class QVNExternalInstallationDeployerStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  bool execute(bool previousSuccess) override;
  [[nodiscard]] std::string_view className() const override { return "QVNExternalInstallationDeployerStrategy"; }
};

}  // namespace deployer
