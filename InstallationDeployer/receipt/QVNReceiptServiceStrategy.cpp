#include "InstallationDeployer/receipt/QVNReceiptServiceStrategy.h"

#include <utility>

#include "InstallationDeployer/installed/QVNRemoveComponentsStrategy.h"
#include "InstallationDeployer/installed/QVNValidateStrategy.h"
#include "InstallationDeployer/processes/QVNProcessStopStrategy.h"
#include "InstallationDeployer/protocols/ServiceAnnouncement.h"
#include "InstallationDeployer/steps/QVNAggregateInstallStrategy.h"
#include "general/foundation/Thread.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/DistributedNotifications.h"
#include "general/logging/SystemLog.h"
#include "general/system/ProcessSelf.h"

namespace deployer {

using foundation::PropertyList;

namespace {

constexpr std::string_view kReceiptNotificationSuffix = ".receipt";
constexpr bool kRunLocally = true;

}  // namespace

std::string QVNReceiptServiceStrategy::receiptNotificationIdForBundlePath(std::string_view bundlePath) {
  return std::string(bundlePath) + std::string(kReceiptNotificationSuffix);
}

bool QVNReceiptServiceStrategy::execute(bool previousSuccess) {
  QVNInstallStepStrategy::execute(previousSuccess);
  return startReceiptService();
}

bool QVNReceiptServiceStrategy::startReceiptService() {
  const std::string serviceName = setupReceiptService();
  if (!installationReceiptService_) {
    // The installer that waits for it sees this process end.
    shutdownReceiptService();
    return failWith();
  }
  receiptRunLoopShouldKeepRunning_ = true;
  logging::debug("<%@>startReceiptService >> receiptServiceName = %@", foundation::currentThreadName(), serviceName);
  foundation::RunLoop::current()->runWhile([this] { return receiptRunLoopShouldKeepRunning_ && canBeReached(); });
  if (receiptRunLoopShouldKeepRunning_) {
    shutdownReceiptService();
    return fail("The receipt process can let nobody in: no descriptor is left.");
  }
  logging::debug("Shutting down service: %@", serviceName);
  logging::debug("exiting main run loop.");
  return true;
}

std::string QVNReceiptServiceStrategy::setupReceiptService() {
  std::string serviceName = receiptServiceNameOfProcess(platform::self::processIdentifier());
  logging::debug("<%@>[QVNReceiptServiceStrategy setupReceiptService]\n\treceiptPath = %@\n\tserviceName = %@",
                 foundation::currentThreadName(), controller().installerPath(), serviceName);
  installationReceiptService_ = QVNInstallationReceiptService::serviceWithName(serviceName, *this);
  if (!installationReceiptService_) {
    logging::error("Unable to acquire a connection for the receipt service %@", serviceName);
    return serviceName;
  }
  const std::string object = receipts_.postingNotificationId();
  logging::debug("----- posting %@ with object: %@", kQVNInstallationReceiptServiceStartedNotification, object);
  ipc::postDistributedNotification(
      serviceAnnouncement(kQVNInstallationReceiptServiceStartedNotification, object, serviceName));
  return serviceName;
}

bool QVNReceiptServiceStrategy::canBeReached() const {
  return !installationReceiptService_->isStarved() && receipts_.canBeReached();
}

void QVNReceiptServiceStrategy::shutdownReceiptService() {
  receiptRunLoopShouldKeepRunning_ = false;
  receipts_.shutdownStatusService();
}

void QVNReceiptServiceStrategy::shutdownService() {
  shutdownReceiptService();
  logging::debug("received shutDownService message for receipt service");
}

PropertyList QVNReceiptServiceStrategy::componentsAndVersions() {
  PropertyList records = manifest().componentsAndVersionsForProduct(productName());
  const auto manifestState = static_cast<QVNInstallerState>(manifest().installerState());
  if (records.isNil() && isFailureState(manifestState)) {
    setInstallerState(manifestState);
  }
  return records;
}

std::optional<std::vector<std::string>> QVNReceiptServiceStrategy::fixPlanForValidation() {
  logging::debug("%s:", "fixPlanForValidation");
  const auto components = manifest().componentListForProduct(productName());
  const SharedPlan plan = components ? std::make_shared<Plan>(*components) : nullptr;
  executeActiveStrategy(
      std::make_shared<QVNValidateStrategy>(PropertyList(), "createFixPlan", this, controller(), plan));
  if (isFailureState(installerState()) || manifest().couldNotRead()) {
    setInstallerState(QVNInstallerStateFailed);
    return std::nullopt;
  }
  if (plan && !plan->empty()) {
    logging::notice("Fix plan is: %@", planDescription(plan));
  } else {
    logging::notice("Fix plan is empty. Nothing to fix");
  }
  return plan ? std::optional(*plan) : std::nullopt;
}

bool QVNReceiptServiceStrategy::removeComponents(const std::vector<std::string>& components) {
  const auto plan = std::make_shared<Plan>(components);
  StepList steps;
  steps.push_back(std::make_unique<QVNProcessStopStrategy>(PropertyList(), "stopProcesses", this, controller(), plan,
                                                           !kRunLocally));
  steps.push_back(std::make_unique<QVNRemoveComponentsStrategy>(PropertyList(), "removeFiles", this, controller(), plan,
                                                                !kRunLocally));
  const auto removal = std::make_shared<QVNAggregateInstallStrategy>(PropertyList(), "removeComponents",
                                                                     std::move(steps), this, controller());
  const bool success = executeActiveStrategy(removal);
  logging::notice("\"%@\" success: %@", removal->qualifiedName(), success ? "YES" : "NO");
  return installerState() == QVNInstallerStateSuccess;
}

bool QVNReceiptServiceStrategy::executeActiveStrategy(const std::shared_ptr<QVNInstallStepStrategy>& step) {
  setActiveStrategy(step);
  const bool success = step->execute(true);
  setInstallerState(step->installerState());
  setActiveStrategy(nullptr);
  return success;
}

void QVNReceiptServiceStrategy::setActiveStrategy(std::shared_ptr<QVNInstallStepStrategy> step) {
  const foundation::MutexLock lock(activeStrategyMutex_);
  std::swap(activeStrategy_, step);
}

std::uint64_t QVNReceiptServiceStrategy::getProgress() {
  std::shared_ptr<QVNInstallStepStrategy> active;
  {
    const foundation::MutexLock lock(activeStrategyMutex_);
    active = activeStrategy_;
  }
  return active ? active->getProgress() : 0;
}

void QVNReceiptServiceStrategy::setInstallerState(QVNInstallerState state) {
  keepInstallerState(state);
  passOnInstallerState(state);
}

}  // namespace deployer
