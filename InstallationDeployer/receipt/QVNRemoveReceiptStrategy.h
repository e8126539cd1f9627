#pragma once

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/Result.h"

namespace deployer {

/// Deletes the receipt of the product that was removed, which is the bundle that runs, and the receipt location when no
/// other product has a receipt there.
///
/// The product's folder is renamed aside in one step before it is removed, so a killed run leaves a receipt whole or
/// gone. What stays of one that was put aside is named in the log and swept by the next run of any product. A receipt
/// of which something could not be read is not removed, nor one while nobody can tell whether others lie beside it.
class QVNRemoveReceiptStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNRemoveReceiptStrategy"; }

 private:
  [[nodiscard]] bool work() override;
  [[nodiscard]] bool putOnDisk();
  [[nodiscard]] foundation::Status removeReceipts();
  [[nodiscard]] foundation::Status removeReceiptDirectory();
};

}  // namespace deployer
