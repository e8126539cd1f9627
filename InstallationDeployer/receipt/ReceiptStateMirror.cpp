#include "InstallationDeployer/receipt/ReceiptStateMirror.h"

#include <optional>
#include <utility>

#include "general/foundation/Thread.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::currentThreadName;
using foundation::RunLoop;
using ipc::Notification;

std::unique_ptr<ReceiptStateMirror> ReceiptStateMirror::start(std::shared_ptr<RunLoop> thread, std::string sender,
                                                              QVNInstallationStatusProxy* receiptStatus,
                                                              QVNInstallStepStrategy& step) {
  std::unique_ptr<ReceiptStateMirror> mirror(
      new ReceiptStateMirror(std::move(thread), std::move(sender), receiptStatus, step));
  // Waits, so that no change is missed.
  const bool isRegistered = mirror->thread_->perform(
      [made = mirror.get()] {
        made->mirrorRole_.assumeHere();
        made->registerReceiptStatusUpdateNotifications();
      },
      true);
  return isRegistered ? std::move(mirror) : nullptr;
}

ReceiptStateMirror::ReceiptStateMirror(std::shared_ptr<RunLoop> thread, std::string sender,
                                       QVNInstallationStatusProxy* receiptStatus, QVNInstallStepStrategy& step)
    : thread_(std::move(thread)), sender_(std::move(sender)), receiptStatus_(receiptStatus), step_(step) {}

ReceiptStateMirror::~ReceiptStateMirror() {
  thread_->perform(
      [this] {
        mirrorRole_.assumeHere();
        deregisterReceiptStatusUpdateNotifications();
      },
      true);
}

void ReceiptStateMirror::registerReceiptStatusUpdateNotifications() {
  observer_ = std::make_unique<ipc::NotificationObserver>();
  observer_->add(std::string(kQVNInstallationStatusUpdatedNotification), sender_,
                 [this](const Notification& notification) { handleReceiptStatusUpdateNotification(notification); });
  logging::debug("----- <%@>added observer for %@ notifications on object: %@", currentThreadName(),
                 kQVNInstallationStatusUpdatedNotification, sender_);
}

void ReceiptStateMirror::deregisterReceiptStatusUpdateNotifications() {
  observer_.reset();
  logging::debug("----- <%@>removed observer for %@ notifications on object: %@", currentThreadName(),
                 kQVNInstallationStatusUpdatedNotification, sender_);
}

void ReceiptStateMirror::handleReceiptStatusUpdateNotification(const Notification& notification) {
  logging::debug(
      "----- <%@>[QVNReceiptClient handleReceiptStatusUpdateNotification:aNotification\n\t aNotification = "
      "%@\n\t[self.receiptStatusProxy getCurrentState]",
      currentThreadName(), notification.description());
  const auto state = receiptStatus_ == nullptr ? std::nullopt : receiptStatus_->answeredState();
  if (state) {
    step_.setInstallerState(static_cast<QVNInstallerState>(*state));
  }
}

}  // namespace deployer
