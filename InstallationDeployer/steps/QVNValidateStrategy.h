#pragma once

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Checks what is installed of the planned components and turns the plan into the list of those that need repair.
class QVNValidateStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  bool execute(bool previousSuccess) override;
  [[nodiscard]] std::string_view className() const override { return "QVNValidateStrategy"; }
};

}  // namespace deployer
