#pragma once

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Has the installed product's receipt remove the components that the install is about to replace. On a machine without
/// receipt there is nothing to remove.
class QVNReceiptRemoveStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNReceiptRemoveStrategy"; }

 private:
  [[nodiscard]] bool work() override;
  /// Takes the receipt's state over after a removal that went wrong there.
  bool failWithReceiptState(QVNReceiptClient& client);
};

}  // namespace deployer
