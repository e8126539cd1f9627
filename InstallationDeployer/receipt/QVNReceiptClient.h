#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "InstallationDeployer/protocols/QVNInstallationReceiptProtocol.h"
#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/foundation/execution/Task.h"
#include "general/ipc/DistributedNotifications.h"

namespace deployer {

/// An installer's end of its conversation with the installed product's receipt process.
///
/// The process is started when a proxy is first asked for, and ended by shutdownReceiptService(); it does not outlive
/// the run in any case. One client serves a whole run, for one step at a time. Belongs to the main thread, but for the
/// mirroring of states, which happens on the thread that serves the run's watchers.
///
/// A message to a process that has gone gives nothing and raises nothing. So that nobody takes that for an answer, the
/// last message counts as failed once the process has ended without having been told to.
class QVNReceiptClient {
 public:
  /// @param statusServerThread the run loop of the thread that serves the run's watchers; null where nobody watches.
  explicit QVNReceiptClient(std::shared_ptr<foundation::RunLoop> statusServerThread = nullptr)
      : statusServerThread_(std::move(statusServerThread)) {}
  virtual ~QVNReceiptClient();
  QVNReceiptClient(const QVNReceiptClient&) = delete;
  QVNReceiptClient& operator=(const QVNReceiptClient&) = delete;

  /// The step on whose behalf the client works from now on.
  void setStrategy(QVNInstallStepStrategy* strategy) { currentStrategy_ = strategy; }

  /// The two services of the receipt process, launched now if there is none yet; null when they cannot be had.
  [[nodiscard]] virtual QVNInstallationReceiptProtocol* receiptProxy();
  [[nodiscard]] virtual QVNInstallationStatusProtocol* receiptStatusProxy();
  /// Whether the last message through the proxy went without an exception; otherwise the proxy is dropped.
  [[nodiscard]] virtual bool lastReceiptProxyMessageSuccess();
  [[nodiscard]] virtual bool lastReceiptStatusProxyMessageSuccess();
  /// Ends the receipt process and waits for its exit. False when it could not be told.
  [[nodiscard]] virtual bool shutdownReceiptService();
  /// Between these two, states of the receipt process become states of the step. Without a thread that serves watchers
  /// nothing happens.
  virtual void startUpdatingCurrentStepStatusFromReceipt();
  virtual void stopUpdatingCurrentStepStatusFromReceipt();

  /// Starts the receipt process and waits, without time limit, until both of its services can be reached or the process
  /// has ended. False when they cannot be had; what went wrong has been logged.
  bool launchReceiptExecutable();
  /// Called for the start notifications of the receipt process.
  void handleReceiptStartNotification(const ipc::Notification& notification);
  void handleReceiptStatusStartNotification(const ipc::Notification& notification);
  /// The service that was announced last, whichever of the two it is.
  [[nodiscard]] const std::optional<std::string>& receiptServiceName() const { return receiptServiceName_; }

 private:
  using ServiceNameOfProcess = std::string (*)(int processIdentifier);
  using ServiceStarted = void (QVNReceiptClient::*)(const ipc::Notification&);

  [[nodiscard]] std::string receiptPath() const;
  /// The object of everything that this receipt's process announces.
  [[nodiscard]] std::string senderIdentifier() const;
  [[nodiscard]] bool observeServices(ipc::NotificationObserver& observer);
  void observeService(ipc::NotificationObserver& observer, std::string_view notification,
                      ServiceNameOfProcess serviceName, ServiceStarted handler);
  [[nodiscard]] bool startTask();
  void waitForServices();
  [[nodiscard]] bool hasServices() const { return receiptProxy_ && receiptStatusProxy_; }
  void exitRunLoopOnProxyInitialized();
  bool failLaunch();
  /// Logs, once, how the process ended.
  void reportEnd(std::string_view message);

  template <class Proxy>
  [[nodiscard]] bool lastMessageSuccess(std::unique_ptr<Proxy>& proxy, std::string_view messageForException);
  /// Whether the process has ended though nobody told it to. Waits a moment for the end of one that answers no more.
  [[nodiscard]] bool receiptHasVanished(bool isConnected);
  [[nodiscard]] std::string executablePath() const;

  void registerReceiptStatusUpdateNotifications(const std::string& sender);
  static void deregisterReceiptStatusUpdateNotifications(const std::string& sender);
  void handleReceiptStatusUpdateNotification(const ipc::Notification& notification);

  const std::shared_ptr<foundation::RunLoop> statusServerThread_;
  QVNInstallStepStrategy* currentStrategy_ = nullptr;
  std::unique_ptr<QVNInstallationReceiptProxy> receiptProxy_;
  std::unique_ptr<QVNInstallationStatusProxy> receiptStatusProxy_;
  std::optional<std::string> receiptServiceName_;
  std::optional<foundation::Task> receiptTask_;
  bool runLoopShouldKeepRunning_ = false;
  bool isToldToEnd_ = false;
  bool isEndReported_ = false;
  /// Where states are being mirrored; null while they are not.
  std::shared_ptr<foundation::RunLoop> mirroringThread_;
};

}  // namespace deployer
