#pragma once

#include <memory>
#include <string>

#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/ThreadRole.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/NotificationObserver.h"

namespace deployer {

/// Makes the states of a receipt process states of the step on whose behalf it works, for as long as the mirror lives.
///
/// It listens on the thread that serves the run's watchers, because the thread of the step is busy with the request
/// meanwhile, and ends there too; when that thread has ended first, nobody uses its run loop any more and the mirror
/// ends where it is. The proxy is asked on that thread alone while the mirror lives. A state that is asked for and not
/// answered changes nothing: it must not pass for success.
class ReceiptStateMirror {
 public:
  /// Null when the thread has ended already.
  /// @param thread serves the run's watchers.
  /// @param sender the object of what the receipt process announces.
  /// @param receiptStatus asked for the states; null where there is nobody to ask. It and the step outlive the mirror.
  [[nodiscard]] static std::unique_ptr<ReceiptStateMirror> start(std::shared_ptr<foundation::RunLoop> thread,
                                                                 std::string sender,
                                                                 QVNInstallationStatusProxy* receiptStatus,
                                                                 QVNInstallStepStrategy& step);
  /// Returns when no state will be mirrored any more.
  ~ReceiptStateMirror();
  ReceiptStateMirror(const ReceiptStateMirror&) = delete;
  ReceiptStateMirror& operator=(const ReceiptStateMirror&) = delete;

 private:
  ReceiptStateMirror(std::shared_ptr<foundation::RunLoop> thread, std::string sender,
                     QVNInstallationStatusProxy* receiptStatus, QVNInstallStepStrategy& step);

  // On the thread that serves watchers.
  void registerReceiptStatusUpdateNotifications() CORVANE_REQUIRES(mirrorRole_);
  void deregisterReceiptStatusUpdateNotifications() CORVANE_REQUIRES(mirrorRole_);
  void handleReceiptStatusUpdateNotification(const ipc::Notification& notification);

  const std::shared_ptr<foundation::RunLoop> thread_;
  const std::string sender_;
  QVNInstallationStatusProxy* const receiptStatus_;
  QVNInstallStepStrategy& step_;
  /// Of the thread that serves watchers, as long as that lives.
  foundation::ThreadRole mirrorRole_;
  std::unique_ptr<ipc::NotificationObserver> observer_ CORVANE_GUARDED_BY(mirrorRole_);
};

}  // namespace deployer
