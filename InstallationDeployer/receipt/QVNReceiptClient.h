#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "InstallationDeployer/protocols/QVNInstallationReceiptProtocol.h"
#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "InstallationDeployer/receipt/ReceiptProcess.h"
#include "InstallationDeployer/receipt/ReceiptStateMirror.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/NotificationObserver.h"

namespace deployer {

/// An installer's end of its conversation with the installed product's receipt process.
///
/// The process is started when a proxy is first asked for, and ended by shutdownReceiptService(); it does not outlive
/// the run in any case. One client serves a whole run, for one step at a time. Belongs to the main thread; the
/// mirroring of states is the one thing that happens on the thread that serves the run's watchers.
///
/// A message to a process that has gone gives nothing and raises nothing. So that nobody takes that for an answer, the
/// last message counts as failed when it reached nobody; one that was answered was answered, whatever becomes of the
/// process. Steps ask by way of ReceiptConversation, which sees to it.
class QVNReceiptClient {
 public:
  /// @param statusServerThread the run loop of the thread that serves the run's watchers; null where nobody watches.
  explicit QVNReceiptClient(std::shared_ptr<foundation::RunLoop> statusServerThread = nullptr)
      : statusServerThread_(std::move(statusServerThread)) {}
  virtual ~QVNReceiptClient() = default;
  QVNReceiptClient(const QVNReceiptClient&) = delete;
  QVNReceiptClient& operator=(const QVNReceiptClient&) = delete;

  /// The step on whose behalf the client works from now on.
  void setStrategy(QVNInstallStepStrategy* strategy) { currentStrategy_ = strategy; }

  /// The two services of the receipt process; null when they cannot be had. Both LAUNCH the process when there is none
  /// yet, and then take as long as launchReceiptExecutable().
  [[nodiscard]] virtual QVNInstallationReceiptProtocol* receiptProxy();
  [[nodiscard]] virtual QVNInstallationStatusProtocol* receiptStatusProxy();
  /// Whether the last message through the proxy was answered; otherwise the proxy is dropped. These launch nothing.
  [[nodiscard]] virtual bool lastReceiptProxyMessageSuccess();
  [[nodiscard]] virtual bool lastReceiptStatusProxyMessageSuccess();
  /// Ends the receipt process and waits for its exit, telling it again while it goes on. False when it could not be
  /// told.
  [[nodiscard]] virtual bool shutdownReceiptService();
  /// Between these two, states of the receipt process become states of the step. Without a thread that serves watchers
  /// nothing happens.
  virtual void startUpdatingCurrentStepStatusFromReceipt();
  virtual void stopUpdatingCurrentStepStatusFromReceipt();

  /// Starts the receipt process and waits, without time limit, until both of its services can be reached or the process
  /// has ended. It hears of them, and where it does not it finds them by the process's number. False when they cannot
  /// be had; what went wrong has been logged.
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
  [[nodiscard]] std::string executablePath() const;
  /// The object of everything that this receipt's process announces.
  [[nodiscard]] std::string senderIdentifier() const;
  void observeServices(ipc::NotificationObserver& observer);
  void observeService(ipc::NotificationObserver& observer, std::string_view notification,
                      ServiceNameOfProcess serviceName, ServiceStarted handler);
  /// Reaches those services that can be reached by their names but were not heard of. Nothing depends on hearing alone.
  void lookForServices();
  /// Whether the service can be reached; ends the wait when this process cannot even ask, time and again.
  [[nodiscard]] bool isVended(const std::string& serviceName);
  void reachReceipt(std::optional<std::string> serviceName);
  void reachReceiptStatus(std::optional<std::string> serviceName);
  [[nodiscard]] bool awaitEndOfProcess();
  [[nodiscard]] bool hasServices() const { return receiptProxy_ && receiptStatusProxy_; }
  void exitRunLoopOnProxyInitialized();
  bool failLaunch();
  template <class Proxy>
  [[nodiscard]] bool lastMessageSuccess(std::unique_ptr<Proxy>& proxy, std::string_view messageForException);

  const std::shared_ptr<foundation::RunLoop> statusServerThread_;
  QVNInstallStepStrategy* currentStrategy_ = nullptr;
  std::unique_ptr<QVNInstallationReceiptProxy> receiptProxy_;
  std::unique_ptr<QVNInstallationStatusProxy> receiptStatusProxy_;
  std::optional<std::string> receiptServiceName_;
  ReceiptProcess process_;
  bool runLoopShouldKeepRunning_ = false;
  int looksInVain_ = 0;
  /// Null while nothing is mirrored. It uses the status proxy, so it ends before that.
  std::unique_ptr<ReceiptStateMirror> mirror_;
};

}  // namespace deployer
