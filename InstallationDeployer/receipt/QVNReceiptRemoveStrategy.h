#pragma once

#include <string>
#include <utility>

#include "InstallationDeployer/receipt/ReceiptContext.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Has the installed product's receipt remove the components that the install is about to replace. On a machine without
/// receipt there is nothing to remove.
class QVNReceiptRemoveStrategy : public QVNInstallStepStrategy {
 public:
  /// @param receipts the part of the run that has to do with receipts; it outlives this step.
  QVNReceiptRemoveStrategy(PropertyList installPhaseDictionary, std::string stepName,
                           QVNInstallStepStrategy* parentStep, StepContext& controller, SharedPlan plan,
                           ReceiptContext& receipts)
      : QVNInstallStepStrategy(std::move(installPhaseDictionary), std::move(stepName), parentStep, controller,
                               std::move(plan)),
        receipts_(receipts) {}

  [[nodiscard]] std::string_view className() const override { return "QVNReceiptRemoveStrategy"; }

 private:
  [[nodiscard]] bool work() override;

  ReceiptContext& receipts_;
};

}  // namespace deployer
