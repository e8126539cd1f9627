#include "InstallationDeployer/receipt/QVNReceiptClient.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/protocols/ServiceAnnouncement.h"
#include "InstallationDeployer/receipt/QVNReceiptServiceStrategy.h"
#include "general/foundation/Paths.h"
#include "general/foundation/Thread.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/ipc/ServiceSocket.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::RunLoop;
using ipc::Notification;
namespace paths = foundation::paths;

namespace {

constexpr std::string_view kClassName = "QVNReceiptClient";
// How often a service is looked for that this process cannot even ask for, and how long one is told to end that cannot
// be reached.
constexpr int kMostLooksInVain = 10;
constexpr std::chrono::seconds kPatienceWithUnreachable(5);

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
  observeServices(observer);
  if (!currentStrategy_->configuration().productName()) {
    logging::error("Receipt path is invalid");
    return false;
  }
  if (!process_.start(executablePath())) {
    return failLaunch();
  }
  runLoopShouldKeepRunning_ = true;
  looksInVain_ = 0;
  process_.awaitServices(runLoopShouldKeepRunning_, [this] { lookForServices(); });
  logging::debug("Initialized receipt proxy. self.receiptProxy = %@", describe(receiptProxy_));
  return hasServices() || failLaunch();
}

bool QVNReceiptClient::failLaunch() {
  currentStrategy_->setInstallerState(QVNInstallerStateFailed);
  return false;
}

void QVNReceiptClient::observeServices(ipc::NotificationObserver& observer) {
  observeService(observer, kQVNInstallationReceiptServiceStartedNotification, receiptServiceNameOfProcess,
                 &QVNReceiptClient::handleReceiptStartNotification);
  observeService(observer, kQVNInstallationStatusServiceStartedNotification, statusServiceNameOfProcess,
                 &QVNReceiptClient::handleReceiptStatusStartNotification);
  logging::debug("----- registered observers on %@ and %@ with object %@",
                 kQVNInstallationReceiptServiceStartedNotification, kQVNInstallationStatusServiceStartedNotification,
                 senderIdentifier());
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
  reachReceipt(announcedService(notification));
}

void QVNReceiptClient::reachReceipt(std::optional<std::string> serviceName) {
  receiptServiceName_ = std::move(serviceName);
  receiptProxy_ = QVNInstallationReceiptProxy::ofService(receiptServiceName_);
  exitRunLoopOnProxyInitialized();
}

void QVNReceiptClient::handleReceiptStatusStartNotification(const Notification& notification) {
  logging::debug("----- <%@>[%@ handleReceiptStatusStartNotification:%@]", foundation::currentThreadName(), kClassName,
                 notification.description());
  reachReceiptStatus(announcedService(notification));
}

void QVNReceiptClient::reachReceiptStatus(std::optional<std::string> serviceName) {
  receiptServiceName_ = std::move(serviceName);
  receiptStatusProxy_ = QVNInstallationStatusProxy::ofService(receiptServiceName_);
  logging::debug("%s: self.receiptStatusProxy = %@",
                 "handleReceiptStatusStartNotification:", describe(receiptStatusProxy_));
  exitRunLoopOnProxyInitialized();
}

void QVNReceiptClient::lookForServices() {
  const std::string status = statusServiceNameOfProcess(process_.processIdentifier());
  if (!receiptStatusProxy_ && isVended(status)) {
    logging::debug("Found the service %@, of which nothing was heard.", status);
    reachReceiptStatus(status);
  }
  const std::string receipt = receiptServiceNameOfProcess(process_.processIdentifier());
  if (!receiptProxy_ && isVended(receipt)) {
    logging::debug("Found the service %@, of which nothing was heard.", receipt);
    reachReceipt(receipt);
  }
}

bool QVNReceiptClient::isVended(const std::string& serviceName) {
  const ipc::Vending vending = ipc::vendingUnder(serviceName);
  if (vending != ipc::Vending::CannotTell) {
    return vending == ipc::Vending::Yes;
  }
  const int number = errno;
  if (++looksInVain_ >= kMostLooksInVain) {
    logging::error("Unable to reach the service %@ of the receipt. %s", serviceName, std::strerror(number));
    runLoopShouldKeepRunning_ = false;
  }
  return false;
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
    return !process_.hasVanished();
  }
  if (const auto& exception = proxy->remote().recentException()) {
    logging::error(messageForException, foundation::format("%@: %@", exception->name(), exception->what()));
    proxy.reset();
    return false;
  }
  if (proxy->remote().isConnected()) {
    // What was answered stays answered, whatever becomes of the process.
    return true;
  }
  if (!process_.hasVanished()) {
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
  return awaitEndOfProcess();
}

bool QVNReceiptClient::awaitEndOfProcess() {
  auto lastTold = RunLoop::Clock::now();
  while (!process_.awaitEnd(RunLoop::kTurn)) {
    // In case it did not get through.
    receiptProxy_->shutdownService();
    if (receiptProxy_->remote().isConnected()) {
      lastTold = RunLoop::Clock::now();
    } else if (RunLoop::Clock::now() - lastTold >= kPatienceWithUnreachable) {
      logging::error("The receipt process %@ cannot be reached.", executablePath());
      return false;
    }
  }
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
