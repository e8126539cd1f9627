#pragma once

#include <string>
#include <string_view>

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Serves an installer as the installed product's receipt.
class QVNReceiptServiceStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  /// Distinguishes what a receipt process announces from what an installer at the same place announces.
  [[nodiscard]] static std::string receiptNotificationIdForBundlePath(std::string_view bundlePath);
  bool execute(bool previousSuccess) override;
  [[nodiscard]] std::string_view className() const override { return "QVNReceiptServiceStrategy"; }
};

}  // namespace deployer
