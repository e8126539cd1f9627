#include "InstallationDeployer/receipt/QVNReceiptClient.h"

#include <chrono>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/protocols/ServiceAnnouncement.h"
#include "InstallationDeployer/receipt/QVNReceiptServiceStrategy.h"
#include "general/foundation/Paths.h"
#include "general/foundation/Thread.h"
#include "general/foundation/execution/TaskExitSource.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::RunLoop;
using foundation::Task;
using ipc::Notification;
namespace paths = foundation::paths;

namespace {

constexpr std::string_view kClassName = "QVNReceiptClient";
constexpr const char* kReceiptArgument = "--receipt";
constexpr std::chrono::milliseconds kTurn(500);
/// How long a process whose services are gone may take to end, before it counts as one that lives without them.
constexpr std::chrono::seconds kTimeToEnd(2);

/// Hears the receipt's states on the thread that serves watchers. It must end on that thread, so that thread owns it:
/// when the thread ends first, the observer ends with it.
thread_local std::unique_ptr<ipc::NotificationObserver> statusUpdateObserver;

template <class Proxy>
std::string describe(const Proxy& proxy) {
  return proxy ? proxy->description() : foundation::format("%@", nullptr);
}

}  // namespace

QVNReceiptClient::~QVNReceiptClient() { QVNReceiptClient::stopUpdatingCurrentStepStatusFromReceipt(); }

QVNInstallationReceiptProtocol* QVNReceiptClient::receiptProxy() {
  if (!receiptProxy_ && !receiptTask_) {
    launchReceiptExecutable();
  }
  return receiptProxy_.get();
}

QVNInstallationStatusProtocol* QVNReceiptClient::receiptStatusProxy() {
  if (!receiptStatusProxy_ && !receiptTask_) {
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
  if (!startTask()) {
    return failLaunch();
  }
  waitForServices();
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
    const int ours = receiptTask_ ? receiptTask_->processIdentifier() : 0;
    if (announcedService(heard) == serviceName(ours)) {
      (this->*handler)(heard);
    }
  });
}

bool QVNReceiptClient::startTask() {
  Task task(executablePath(), {kReceiptArgument});
  task.setEndsWithParent(true);
  try {
    task.launch();
  } catch (const foundation::TaskLaunchException& exception) {
    logging::error("Failed to launch receipt  at %@. %@", executablePath(), exception.what());
    return false;
  }
  receiptTask_.emplace(std::move(task));
  isToldToEnd_ = false;
  isEndReported_ = false;
  return true;
}

void QVNReceiptClient::waitForServices() {
  runLoopShouldKeepRunning_ = true;
  const auto loop = RunLoop::current();
  const auto timer = loop->addTimer(kTurn, true, {});
  const foundation::TaskExitSource exit(*loop, *receiptTask_);
  while (runLoopShouldKeepRunning_ && loop->runUntil(RunLoop::Clock::now() + kTurn)) {
    if (runLoopShouldKeepRunning_ && !receiptTask_->isRunning()) {
      reportEnd("The receipt process %@ ended before its services could be reached (%@).");
      break;
    }
  }
  loop->removeSource(timer);
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
    return !receiptHasVanished(false);
  }
  if (const auto& exception = proxy->remote().recentException()) {
    logging::error(messageForException, foundation::format("%@: %@", exception->name(), exception->what()));
    proxy.reset();
    return false;
  }
  const bool isConnected = proxy->remote().isConnected();
  const bool hasVanished = receiptHasVanished(isConnected);
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

bool QVNReceiptClient::receiptHasVanished(bool isConnected) {
  if (!receiptTask_ || (isConnected && isToldToEnd_)) {
    return false;
  }
  // A process closes its connections shortly before its exit can be seen.
  const auto deadline = RunLoop::Clock::now() + (isConnected ? std::chrono::seconds(0) : kTimeToEnd);
  if (!receiptTask_->waitUntilExit(deadline)) {
    return false;
  }
  reportEnd("The receipt process %@ ended unexpectedly (%@).");
  return true;
}

void QVNReceiptClient::reportEnd(std::string_view message) {
  if (!isEndReported_) {
    logging::error(message, executablePath(), receiptTask_->endDescription());
    isEndReported_ = true;
  }
}

bool QVNReceiptClient::shutdownReceiptService() {
  if (!receiptTask_) {
    return true;
  }
  logging::debug("Sending shutdownService to receipt service: <QVNInstallationReceiptProtocol>%@", receiptServiceName_);
  isToldToEnd_ = true;
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
  while (!receiptTask_->waitUntilExit(RunLoop::Clock::now() + kTurn)) {
  }
  receiptTask_.reset();
  return true;
}

void QVNReceiptClient::startUpdatingCurrentStepStatusFromReceipt() {
  const auto registered = [this, sender = senderIdentifier()] { registerReceiptStatusUpdateNotifications(sender); };
  if (statusServerThread_ && statusServerThread_->perform(registered, true)) {
    mirroringThread_ = statusServerThread_;
  }
}

void QVNReceiptClient::stopUpdatingCurrentStepStatusFromReceipt() {
  if (mirroringThread_) {
    mirroringThread_->perform([sender = senderIdentifier()] { deregisterReceiptStatusUpdateNotifications(sender); },
                              true);
    mirroringThread_.reset();
  }
}

void QVNReceiptClient::registerReceiptStatusUpdateNotifications(const std::string& sender) {
  statusUpdateObserver = std::make_unique<ipc::NotificationObserver>();
  statusUpdateObserver->add(
      std::string(kQVNInstallationStatusUpdatedNotification), sender,
      [this](const Notification& notification) { handleReceiptStatusUpdateNotification(notification); });
  logging::debug("----- <%@>added observer for %@ notifications on object: %@", foundation::currentThreadName(),
                 kQVNInstallationStatusUpdatedNotification, sender);
}

void QVNReceiptClient::deregisterReceiptStatusUpdateNotifications(const std::string& sender) {
  statusUpdateObserver.reset();
  logging::debug("----- <%@>removed observer for %@ notifications on object: %@", foundation::currentThreadName(),
                 kQVNInstallationStatusUpdatedNotification, sender);
}

void QVNReceiptClient::handleReceiptStatusUpdateNotification(const Notification& notification) {
  logging::debug(
      "----- <%@>[QVNReceiptClient handleReceiptStatusUpdateNotification:aNotification\n\t aNotification = "
      "%@\n\t[self.receiptStatusProxy getCurrentState]",
      foundation::currentThreadName(), notification.description());
  // The proxy is not asked for through its getter: this is not the thread that may launch a receipt.
  const std::int32_t state = receiptStatusProxy_ ? receiptStatusProxy_->getCurrentState() : 0;
  currentStrategy_->setInstallerState(static_cast<QVNInstallerState>(state));
}

}  // namespace deployer
