#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "InstallationDeployer/receipt/QVNInstallationReceiptService.h"
#include "InstallationDeployer/receipt/ReceiptContext.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/Mutex.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// Serves an installer as the installed product's receipt, until it is told to end.
///
/// Requests are served one at a time on the thread that runs the step. Every state, final ones included, goes to the
/// run, so that the installer can read there how a request ended.
class QVNReceiptServiceStrategy : public QVNInstallStepStrategy {
 public:
  /// @param receipts the part of the run that has to do with receipts; it outlives this step.
  QVNReceiptServiceStrategy(PropertyList installPhaseDictionary, std::string stepName,
                            QVNInstallStepStrategy* parentStep, StepContext& controller, SharedPlan plan,
                            ReceiptContext& receipts)
      : QVNInstallStepStrategy(std::move(installPhaseDictionary), std::move(stepName), parentStep, controller,
                               std::move(plan)),
        receipts_(receipts) {}

  /// Distinguishes what a receipt process announces from what an installer at the same place announces.
  [[nodiscard]] static std::string receiptNotificationIdForBundlePath(std::string_view bundlePath);

  /// Returns when the service has been told to end. Fails when the service cannot be vended, or nobody can be let in.
  bool execute(bool previousSuccess) override;
  void setInstallerState(QVNInstallerState state) override;
  /// Progress of the request that is being served; 0 between requests.
  [[nodiscard]] std::uint64_t getProgress() override;
  [[nodiscard]] std::string_view className() const override { return "QVNReceiptServiceStrategy"; }

  // What a client may ask; see QVNInstallationReceiptProtocol.
  [[nodiscard]] PropertyList componentsAndVersions();
  [[nodiscard]] std::optional<std::vector<std::string>> fixPlanForValidation();
  bool removeComponents(const std::vector<std::string>& components);
  void shutdownService();

 private:
  bool startReceiptService();
  /// Vends and announces the service; its name. There is none, with the error in the log, when it cannot be vended.
  [[nodiscard]] std::string setupReceiptService();
  void shutdownReceiptService();
  [[nodiscard]] bool canBeReached() const;
  /// Runs a step on behalf of a request and takes its state over; its success.
  bool executeActiveStrategy(const std::shared_ptr<QVNInstallStepStrategy>& step);
  void setActiveStrategy(std::shared_ptr<QVNInstallStepStrategy> step);

  std::unique_ptr<QVNInstallationReceiptService> installationReceiptService_;
  bool receiptRunLoopShouldKeepRunning_ = false;
  // Watchers ask for progress from another thread.
  foundation::Mutex activeStrategyMutex_;
  std::shared_ptr<QVNInstallStepStrategy> activeStrategy_ CORVANE_GUARDED_BY(activeStrategyMutex_);

  ReceiptContext& receipts_;
};

}  // namespace deployer
