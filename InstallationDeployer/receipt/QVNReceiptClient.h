#pragma once

#include "InstallationDeployer/protocols/QVNInstallationReceiptProtocol.h"
#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// An installer's end of its conversation with the installed product's receipt process.
///
/// The process is started when a proxy is first asked for, and ended by shutdownReceiptService(). One client serves a
/// whole run, for one step at a time. Belongs to the main thread.
class QVNReceiptClient {
 public:
  QVNReceiptClient() = default;
  virtual ~QVNReceiptClient() = default;
  QVNReceiptClient(const QVNReceiptClient&) = delete;
  QVNReceiptClient& operator=(const QVNReceiptClient&) = delete;

  /// The step on whose behalf the client works from now on.
  void setStrategy(QVNInstallStepStrategy* strategy) { currentStrategy_ = strategy; }

  /// The two services of the receipt process, launched now if there is none yet; null when they cannot be had.
  [[nodiscard]] virtual QVNInstallationReceiptProtocol* receiptProxy() { return nullptr; }
  [[nodiscard]] virtual QVNInstallationStatusProtocol* receiptStatusProxy() { return nullptr; }
  /// Whether the last message through the proxy went without an exception; otherwise the proxy is dropped.
  [[nodiscard]] virtual bool lastReceiptProxyMessageSuccess() { return true; }
  [[nodiscard]] virtual bool lastReceiptStatusProxyMessageSuccess() { return true; }
  /// Ends the receipt process and waits for its exit. False when it could not be told.
  [[nodiscard]] virtual bool shutdownReceiptService() { return true; }
  /// Between these two, states of the receipt process become states of the step.
  virtual void startUpdatingCurrentStepStatusFromReceipt() {}
  virtual void stopUpdatingCurrentStepStatusFromReceipt() {}

 private:
  [[maybe_unused]] QVNInstallStepStrategy* currentStrategy_ = nullptr;
};

}  // namespace deployer
