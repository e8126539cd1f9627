#pragma once

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Keeps modifiable files aside while an older product is removed.
class QVNCacheComponentStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  bool execute(bool previousSuccess) override;
  [[nodiscard]] std::string_view className() const override { return "QVNCacheComponentStrategy"; }
};

}  // namespace deployer
