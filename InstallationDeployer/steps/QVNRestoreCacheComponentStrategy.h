#pragma once

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Puts the files back that were kept aside.
class QVNRestoreCacheComponentStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  bool execute(bool previousSuccess) override;
  [[nodiscard]] std::string_view className() const override { return "QVNRestoreCacheComponentStrategy"; }
};

}  // namespace deployer
