#pragma once

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Deletes the receipt of the product that was removed.
class QVNRemoveReceiptStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  bool execute(bool previousSuccess) override;
  [[nodiscard]] std::string_view className() const override { return "QVNRemoveReceiptStrategy"; }
};

}  // namespace deployer
