#pragma once

#include <string>

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Leaves the receipt: a copy of the running installer bundle in the product's folder at the receipt location.
class QVNWriteReceiptStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;

  bool execute(bool previousSuccess) override;
  [[nodiscard]] std::string_view className() const override { return "QVNWriteReceiptStrategy"; }
};

}  // namespace deployer
