#include "InstallationDeployer/receipt/QVNReceiptClient.h"

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/protocols/ServiceAnnouncement.h"
#include "InstallationDeployer/receipt/QVNReceiptServiceStrategy.h"
#include "general/foundation/Paths.h"
#include "general/foundation/Thread.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using ipc::Notification;
namespace paths = foundation::paths;

namespace {

constexpr std::string_view kClassName = "QVNReceiptClient";

template <class Proxy>
std::string describe(const Proxy& proxy) {
  return proxy ? proxy->description() : foundation::format("%@", nullptr);
}

}  // namespace

QVNInstallationReceiptProtocol* QVNReceiptClient::receiptProxy() {
  if (!receiptProxy_ && !process_.isStarted()) {
    launchReceiptExecutable();
  }
  return receiptProxy_.get();
}

QVNInstallationStatusProtocol* QVNReceiptClient::receiptStatusProxy() {
  if (!receiptStatusProxy_ && !process_.isStarted()) {
    launchReceiptExecutable();
  }
  return receiptStatusProxy_.get();
}

std::string QVNReceiptClient::receiptPath() const { return currentStrategy_->configuration().receiptPath(); }

std::string QVNReceiptClient::senderIdentifier() const {
  return QVNReceiptServiceStrategy::receiptNotificationIdForBundlePath(receiptPath());
}

std::string QVNReceiptClient::executablePath() const {
  return paths::append(receiptPath(), kQVNInstallationDeployerPath);
}

bool QVNReceiptClient::launchReceiptExecutable() {
  receiptProxy_.reset();
  receiptStatusProxy_.reset();
  // Needed no longer than the launch takes: later announcements are of other processes.
  ipc::NotificationObserver observer;
  if (!observeServices(observer)) {
    return failLaunch();
  }
  if (!currentStrategy_->configuration().productName()) {
    logging::error("Receipt path is invalid");
    return false;
  }
  if (!process_.start(executablePath())) {
    return failLaunch();
  }
  runLoopShouldKeepRunning_ = true;
  process_.awaitServices(runLoopShouldKeepRunning_);
  logging::debug("Initialized receipt proxy. self.receiptProxy = %@", describe(receiptProxy_));
  return hasServices() || failLaunch();
}

bool QVNReceiptClient::failLaunch() {
  currentStrategy_->setInstallerState(QVNInstallerStateFailed);
  return false;
}

bool QVNReceiptClient::observeServices(ipc::NotificationObserver& observer) {
  if (!observer.isListening()) {
    // What a process announces that nobody can hear would be waited for in vain.
    logging::error("Unable to hear of the receipt's services. The receipt at %@ is not launched.", receiptPath());
    return false;
  }
  observeService(observer, kQVNInstallationReceiptServiceStartedNotification, receiptServiceNameOfProcess,
                 &QVNReceiptClient::handleReceiptStartNotification);
  observeService(observer, kQVNInstallationStatusServiceStartedNotification, statusServiceNameOfProcess,
                 &QVNReceiptClient::handleReceiptStatusStartNotification);
  logging::debug("----- registered observers on %@ and %@ with object %@",
                 kQVNInstallationReceiptServiceStartedNotification, kQVNInstallationStatusServiceStartedNotification,
                 senderIdentifier());
  return true;
}

void QVNReceiptClient::observeService(ipc::NotificationObserver& observer, std::string_view notification,
                                      ServiceNameOfProcess serviceName, ServiceStarted handler) {
  observer.add(std::string(notification), senderIdentifier(), [this, serviceName, handler](const Notification& heard) {
    // Another installer may have launched this receipt too; its process serves that one alone.
    if (announcedService(heard) == serviceName(process_.processIdentifier())) {
      (this->*handler)(heard);
    }
  });
}

void QVNReceiptClient::handleReceiptStartNotification(const Notification& notification) {
  logging::debug("----- <%@>[%@ handleReceiptStartNotification:%@]", foundation::currentThreadName(), kClassName,
                 notification.description());
  receiptServiceName_ = announcedService(notification);
  receiptProxy_ = QVNInstallationReceiptProxy::ofService(receiptServiceName_);
  exitRunLoopOnProxyInitialized();
}

void QVNReceiptClient::handleReceiptStatusStartNotification(const Notification& notification) {
  logging::debug("----- <%@>[%@ handleReceiptStatusStartNotification:%@]", foundation::currentThreadName(), kClassName,
                 notification.description());
  receiptServiceName_ = announcedService(notification);
  receiptStatusProxy_ = QVNInstallationStatusProxy::ofService(receiptServiceName_);
  logging::debug("%s: self.receiptStatusProxy = %@",
                 "handleReceiptStatusStartNotification:", describe(receiptStatusProxy_));
  exitRunLoopOnProxyInitialized();
}

void QVNReceiptClient::exitRunLoopOnProxyInitialized() {
  if (hasServices()) {
    runLoopShouldKeepRunning_ = false;
  }
}

bool QVNReceiptClient::lastReceiptProxyMessageSuccess() {
  return lastMessageSuccess(receiptProxy_, "Receipt proxy sent exception. %@");
}

bool QVNReceiptClient::lastReceiptStatusProxyMessageSuccess() {
  return lastMessageSuccess(receiptStatusProxy_, "Receipt status proxy sent exception. %@");
}

template <class Proxy>
bool QVNReceiptClient::lastMessageSuccess(std::unique_ptr<Proxy>& proxy, std::string_view messageForException) {
  if (!proxy) {
    return !process_.hasVanished(false);
  }
  if (const auto& exception = proxy->remote().recentException()) {
    logging::error(messageForException, foundation::format("%@: %@", exception->name(), exception->what()));
    proxy.reset();
    return false;
  }
  const bool isConnected = proxy->remote().isConnected();
  const bool hasVanished = process_.hasVanished(isConnected);
  if (isConnected && !hasVanished) {
    return true;
  }
  if (!hasVanished) {
    // The message went nowhere, and its result 0 must not pass for an answer.
    logging::error("The receipt process %@ cannot be reached.", executablePath());
  }
  proxy.reset();
  return false;
}

bool QVNReceiptClient::shutdownReceiptService() {
  if (!process_.isStarted()) {
    return true;
  }
  logging::debug("Sending shutdownService to receipt service: <QVNInstallationReceiptProtocol>%@", receiptServiceName_);
  process_.expectEnd();
  if (receiptProxy_) {
    receiptProxy_->shutdownService();
  }
  if (!lastReceiptProxyMessageSuccess()) {
    return false;
  }
  if (!receiptProxy_) {
    // It lives but cannot be told, so waiting would never end. It ends with this process.
    return false;
  }
  process_.awaitEnd();
  return true;
}

void QVNReceiptClient::startUpdatingCurrentStepStatusFromReceipt() {
  mirror_.reset();
  if (statusServerThread_) {
    // The proxy is not asked for through its getter: the thread that will use it may launch no receipt.
    mirror_ = ReceiptStateMirror::start(statusServerThread_, senderIdentifier(), receiptStatusProxy_.get(),
                                        *currentStrategy_);
  }
}

void QVNReceiptClient::stopUpdatingCurrentStepStatusFromReceipt() { mirror_.reset(); }

}  // namespace deployer
