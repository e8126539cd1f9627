#pragma once

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/Result.h"

namespace deployer {

/// Deletes the receipt of the product that was removed, which is the bundle that runs, and the receipt location when no
/// other product has a receipt there.
///
/// The product's folder is renamed aside in one step before it is removed, so a killed run leaves a receipt whole or
/// gone. What a killed run left aside goes with the next receipt that is written or removed.
class QVNRemoveReceiptStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNRemoveReceiptStrategy"; }

 private:
  [[nodiscard]] bool work() override;
  [[nodiscard]] foundation::Status removeReceipts();
  [[nodiscard]] foundation::Status removeReceiptDirectory();
};

}  // namespace deployer
