#include "InstallationDeployer/run/QVNInstallController.h"

#include <vector>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/InternalInconsistency.h"
#include "InstallationDeployer/receipt/FailedInstallCleanup.h"
#include "InstallationDeployer/receipt/QVNReceiptServiceStrategy.h"
#include "general/foundation/Paths.h"
#include "general/foundation/Thread.h"
#include "general/foundation/files/FileManager.h"
#include "general/logging/SystemLog.h"
#include "general/system/ConsoleSessionPrimitives.h"
#include "general/system/ProcessSelf.h"

namespace deployer {

namespace paths = foundation::paths;
namespace files = foundation::files;

namespace {

/// The keys as an array; nil when there is no dictionary.
foundation::PropertyList keysOf(const foundation::PropertyList& dictionary) {
  if (!dictionary.isDictionary()) {
    return {};
  }
  std::vector<std::string> keys;
  for (const auto& entry : dictionary.entries()) {
    keys.emplace_back(entry.key);
  }
  return foundation::PropertyList(keys);
}

}  // namespace

QVNInstallController::QVNInstallController(QVNInstallConfiguration configuration)
    : configuration_(std::move(configuration)) {
  if (configuration_.isReceiptMode()) {
    configuration_.setProductName(
        paths::lastComponent(paths::deleteLastComponent(QVNInstallController::installerPath())));
    logging::debug("Receipt for installed product: %@", configuration_.productName());
  }
  if (configuration_.statusServer()) {
    installationStatusService_ = std::make_unique<QVNInstallationStatusService>(
        statusServiceNameOfProcess(platform::self::processIdentifier()), *this,
        RunOrders(configuration_.isReceiptMode() || configuration_.isNested() ? RunOrders::Givers::Root
                                                                              : RunOrders::Givers::ConsoleUser,
                  platform::consoleSessionUserId));
  }
}

QVNInstallController::~QVNInstallController() = default;

std::unique_ptr<QVNInstallController> QVNInstallController::objectWithConfiguration(
    QVNInstallConfiguration configuration) {
  return std::make_unique<QVNInstallController>(std::move(configuration));
}

void QVNInstallController::startController() {
  if (receiptIsGone(false)) {
    startStatusServiceForError(QVNInstallerStateSuccess);
    return;
  }
  productIsDetected_ = !configuration_.productName();
  failOnException([this] { chooseProduct(); });
  if (!hasFailed() && !configuration_.install() && !configuration_.receipt() && !configuration_.remove()) {
    return;
  }
  checkInstallerLocation();
  listPayload();
  if (hasFailed()) {
    startStatusServiceForError(installerState());
    return;
  }
  runSteps();
  shutdownReceiptProcess();
  // A run that only waits for its watchers changes nothing any more.
  productLocks_.release();
  completeMainThread();
  logging::debug("exiting %s", "startController");
  if (configuration_.install()) {
    logging::notice("Installation complete");
  }
  const auto canceller = installationStatusService_ ? installationStatusService_->canceller() : std::nullopt;
  if (canceller && installerState() == QVNInstallerStateCancelled) {
    logging::notice("The run was cancelled by %@", canceller);
  }
}

void QVNInstallController::runSteps() {
  logStartupMessage();
  setInstallerState(QVNInstallerStatePreparing);
  if (installationStatusService_) {
    installationStatusService_->startServer();
  }
  if (configuration_.isReceiptMode() && !serviceIsUp()) {
    // Its installer would wait in vain for what it announces.
    setInstallerState(QVNInstallerStateFailed);
    return;
  }
  failOnException([this] {
    if (haveProductToOneself()) {
      buildAndRunStrategies();
    }
  });
}

bool QVNInstallController::serviceIsUp() {
  if (installationStatusService_) {
    installationStatusService_->awaitStart();
  }
  return canBeReached();
}

bool QVNInstallController::canBeReached() const {
  return !installationStatusService_ || installationStatusService_->canBeReached();
}

void QVNInstallController::shutdownReceiptProcess() {
  if (!receiptClient_) {
    return;
  }
  bool isShutDown = false;
  try {
    isShutDown = receiptClient_->shutdownReceiptService();
  } catch (const std::exception& exception) {
    logging::error("%@", exception.what());
  }
  if (!isShutDown) {
    logging::error("Unable to shutdown the receipt service.");
  }
}

void QVNInstallController::completeMainThread() {
  mainThreadComplete_ = true;
  if (installationStatusService_) {
    if (configuration_.isReceiptMode() && installationStatusService_->runLoopShouldKeepRunning()) {
      // It ended without having been told to, and its installer sees it end.
      installationStatusService_->shutdownStatusServer();
    }
    installationStatusService_->waitForServiceCompletion();
  }
}

void QVNInstallController::failOnException(const std::function<void()>& work) {
  try {
    work();
  } catch (const InternalInconsistency& inconsistency) {
    logging::error("%@", inconsistency.what());
    setInstallerState(QVNInstallerStateFailed);
  } catch (const std::exception& exception) {
    // The receipt process and the watchers of this run must still be dealt with.
    logging::error("The run cannot go on. %@", exception.what());
    setInstallerState(QVNInstallerStateFailed);
  }
}

void QVNInstallController::chooseProduct() {
  selectProduct();
  configuration_.setBundlePathIsReceipt(configuration_.bundlePath() == configuration_.receiptPath());
  checkRemovalLocation();
}

void QVNInstallController::selectProduct() {
  if (!configuration_.productName()) {
    configuration_.setProductName(productNameFromDetection());
  }
  if (!configuration_.productName()) {
    logging::error("Unable to select product. Products = %@", keysOf(manifest().productsDictionary()));
    setInstallerState(QVNInstallerStateFailed);
    return;
  }
  // The name becomes a folder at the receipt location; any other text would lead the receipt elsewhere.
  if (!paths::isSingleComponent(*configuration_.productName())) {
    logging::error("The product name \"%@\" cannot be the name of a folder.", configuration_.productName());
    setInstallerState(QVNInstallerStateFailed);
  }
}

void QVNInstallController::checkRemovalLocation() {
  if (hasFailed() || !configuration_.remove() || configuration_.bundlePathIsReceipt()) {
    return;
  }
  logging::error("Remove operation cannot run from this location (%@)\n\tit must be run from the receipt location (%@)",
                 configuration_.bundlePath(), configuration_.receiptPath());
  setInstallerState(QVNInstallerStateFailed);
}

void QVNInstallController::checkInstallerLocation() {
  if (hasFailed() || !installerPath().starts_with(kQVNInstalledProductFolder)) {
    return;
  }
  logging::error("Corvane Endpoint Installer cannot run from this location.");
  setInstallerState(QVNInstallerStateFailed);
}

void QVNInstallController::listPayload() {
  if (hasFailed() || !(configuration_.install() || configuration_.receipt())) {
    return;
  }
  // Mounts a payload that is mounted on first access; a bundle without payload may still be valid.
  static_cast<void>(files::contentsOfDirectory(installerRootPath()));
}

void QVNInstallController::startStatusServiceForError(QVNInstallerState state) {
  setInstallerState(state);
  if (installationStatusService_) {
    installationStatusService_->startServer();
    // Once more, now that there is somebody to announce it.
    setInstallerState(state);
  }
  completeMainThread();
  logging::debug("exiting %s", "startStatusServiceForError:");
}

void QVNInstallController::logStartupMessage() {
  if (configuration_.install()) {
    logging::notice("Installing %@", configuration_.productName());
  } else if (configuration_.remove()) {
    logging::notice("Removing %@", configuration_.productName());
  } else if (configuration_.isReceiptMode()) {
    logging::notice("Starting receipt service for %@", configuration_.productName());
  }
}

QVNInstallerManifest& QVNInstallController::manifest() {
  if (!manifest_) {
    manifest_ = std::make_unique<QVNInstallerManifest>(installerPath());
  }
  return *manifest_;
}

RunJournal& QVNInstallController::journal() {
  if (!journal_) {
    journal_ = std::make_unique<RunJournal>(configuration_, manifest(), journalStore());
  }
  return *journal_;
}

ChangeRecord& QVNInstallController::changes() { return journal(); }

void QVNInstallController::setInstallerState(QVNInstallerState state) {
  logging::debug("----- <%@>[QVNInstallController setInstallerState:%d]", foundation::currentThreadName(),
                 static_cast<std::uint32_t>(state));
  installerState_ = state;
  if (installationStatusService_) {
    installationStatusService_->stateUpdatedNotification();
  }
}

std::uint64_t QVNInstallController::getProgress() {
  QVNInstallStepStrategy* root = watchedStrategy_;
  return root == nullptr ? 0 : root->getProgress();
}

std::string QVNInstallController::installerPath() const { return configuration_.bundlePath().value_or(""); }

std::string QVNInstallController::installerRootPath() const {
  return paths::append(installerPath(), kQVNPayloadRootPath);
}

std::string QVNInstallController::postingNotificationId() const {
  return configuration_.isReceiptMode() ? QVNReceiptServiceStrategy::receiptNotificationIdForBundlePath(installerPath())
                                        : installerPath();
}

QVNReceiptClient* QVNInstallController::getReceiptClientForStrategy(QVNInstallStepStrategy& step) {
  if (!receiptClient_) {
    receiptClient_ = makeReceiptClient();
  }
  receiptClient_->setStrategy(&step);
  return receiptClient_.get();
}

std::unique_ptr<QVNReceiptClient> QVNInstallController::makeReceiptClient() {
  return std::make_unique<QVNReceiptClient>(statusServerThread());
}

std::shared_ptr<foundation::RunLoop> QVNInstallController::statusServerThread() {
  return installationStatusService_ ? installationStatusService_->statusServerThread() : nullptr;
}

void QVNInstallController::shutdownStatusService() {
  if (installationStatusService_) {
    installationStatusService_->shutdownService();
  }
}

void QVNInstallController::notifyInstallFailure() {
  setInstallerState(QVNInstallerStateFailed);
  logging::debug("Inform the user of error: %d", static_cast<std::uint32_t>(installerState()));
}

bool QVNInstallController::updateProductCache() {
  logging::debug("updateProductCache");
  setInstallerState(QVNInstallerStateDownloading);
  return true;
}

void QVNInstallController::cleanupFailedInstall() { deployer::cleanupFailedInstall(); }

}  // namespace deployer
