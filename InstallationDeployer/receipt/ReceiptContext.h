#pragma once

#include <string>

namespace deployer {

class QVNInstallStepStrategy;
class QVNReceiptClient;

/// The run as those of its steps see it that talk to a receipt, or are one: what they need beside the StepContext.
/// Belongs to the main thread, which runs the steps.
class ReceiptContext {
 public:
  virtual ~ReceiptContext() = default;

  /// The client of the installed product's receipt process, working for this step from now on; null when there is none.
  [[nodiscard]] virtual QVNReceiptClient* getReceiptClientForStrategy(QVNInstallStepStrategy& step) = 0;
  /// Names this run to those who watch several: the object of the notifications it posts.
  [[nodiscard]] virtual std::string postingNotificationId() const = 0;
  /// Ends the service for watchers, as a watcher would.
  virtual void shutdownStatusService() = 0;
  /// Whether watchers can reach this run.
  [[nodiscard]] virtual bool canBeReached() const { return true; }
};

}  // namespace deployer
