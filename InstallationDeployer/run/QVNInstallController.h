#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "InstallationDeployer/receipt/QVNReceiptClient.h"
#include "InstallationDeployer/receipt/ReceiptContext.h"
#include "InstallationDeployer/run/ProductLocks.h"
#include "InstallationDeployer/run/RunJournal.h"
#include "InstallationDeployer/status/QVNInstallationStatusService.h"
#include "InstallationDeployer/status/WatchedRun.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "InstallationDeployer/steps/StepContext.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// One run of the engine, from the configuration to the final state.
///
/// startController() checks that the run may go ahead, builds the tree of steps for the mode, runs it on the calling
/// (main) thread and returns when the run is over and, where it is watched, its watcher has seen the end;
/// installerState() is then the exit code. State, progress and cancellation may be used from any thread; everything
/// else belongs to the main thread.
class QVNInstallController : public StepContext, public ReceiptContext, public WatchedRun {
 public:
  using PropertyList = foundation::PropertyList;

  /// In receipt mode the product's name is taken from the folder that holds the bundle.
  explicit QVNInstallController(QVNInstallConfiguration configuration);
  [[nodiscard]] static std::unique_ptr<QVNInstallController> objectWithConfiguration(
      QVNInstallConfiguration configuration);
  ~QVNInstallController() override;

  void startController();

  // What steps and watchers use.
  [[nodiscard]] QVNInstallConfiguration& configuration() override { return configuration_; }
  /// The manifests of the bundle, opened on first use.
  [[nodiscard]] QVNInstallerManifest& manifest() override;
  [[nodiscard]] QVNInstallerState installerState() const override { return installerState_; }
  /// The journal of the run, made on first use.
  [[nodiscard]] ChangeRecord& changes() override;
  /// Every change of the run's state goes through here.
  void setInstallerState(QVNInstallerState state) override;
  /// Progress of the root step; 0 while there is none.
  [[nodiscard]] std::uint64_t getProgress() override;
  void cancelInstallation() override { installationCancelled_ = true; }
  [[nodiscard]] bool installationCancelled() const override { return installationCancelled_; }
  /// Only watchers may still be waited for.
  [[nodiscard]] bool mainThreadComplete() const override { return mainThreadComplete_; }
  [[nodiscard]] std::string installerPath() const override;
  [[nodiscard]] std::string installerRootPath() const override;
  [[nodiscard]] std::string postingNotificationId() const override;
  /// The run loop of the thread that serves watchers; null when the run has none.
  [[nodiscard]] std::shared_ptr<foundation::RunLoop> statusServerThread();
  void shutdownStatusService() override;
  [[nodiscard]] bool canBeReached() const override;
  [[nodiscard]] QVNReceiptClient* getReceiptClientForStrategy(QVNInstallStepStrategy& step) override;

  // Parts of a run.
  void notifyInstallFailure();
  bool updateProductCache();
  static void cleanupFailedInstall();

  /// The product of the bundle, chosen by what is on the machine where there are several; nothing when none is
  /// detected.
  [[nodiscard]] std::optional<std::string> productNameFromDetection();
  /// Whether everything that the dictionary's detection paths name exists; without such paths, true.
  [[nodiscard]] bool productIsDetectedFor(const PropertyList& dictionary);
  [[nodiscard]] bool oneOfCollectionExists(const PropertyList& detectionPaths);

  /// Builds the tree for the mode and runs it.
  void buildAndRunStrategies();
  /// Steps that clean up after a removal; none when the index lists nothing to clean up.
  [[nodiscard]] StepList cleanupStepsWithPlan();
  /// Decides how an install treats a product that is already there, and returns the steps that take it away.
  [[nodiscard]] StepList preInstallRemovalStepsWithPlan(const SharedPlan& removalPlan);
  [[nodiscard]] StepList postInstallRemovalStepsWithPlan(const SharedPlan& removalPlan);

  /// The root step of the run; null before it is built.
  [[nodiscard]] const QVNInstallStepStrategy* strategy() const { return strategy_.get(); }

 protected:
  /// Builds the tree of the mode without running it; null when there is none.
  [[nodiscard]] std::unique_ptr<QVNInstallStepStrategy> buildStrategies();
  [[nodiscard]] virtual std::unique_ptr<QVNReceiptClient> makeReceiptClient();
  /// Where the journals of runs lie.
  [[nodiscard]] virtual JournalStore journalStore() const { return JournalStore(); }

 private:
  void startStatusServiceForError(QVNInstallerState state);
  void logStartupMessage();
  /// Waits until no other run changes the product or those that go with it, and looks at the machine afresh. False when
  /// there is nothing to do then; the state says why.
  [[nodiscard]] bool haveProductToOneself();
  [[nodiscard]] bool lockProducts(const ProductNames& products);
  [[nodiscard]] ProductNames productsToLock();
  void lookAgain();
  /// Whether another run has taken away the receipt that this removal was started from; says so in the log.
  /// @param wasThere it was seen before; else the executable tells, which is gone with it.
  [[nodiscard]] bool receiptIsGone(bool wasThere);
  void runSteps();
  /// Waits until it is decided.
  [[nodiscard]] bool serviceIsUp();
  void shutdownReceiptProcess();
  /// Ends the work: from now on only watchers are waited for.
  void completeMainThread();
  /// Does the work; an exception that leaves it fails the run and is logged.
  void failOnException(const std::function<void()>& work);
  /// The checks before the steps, each skipped after a failure.
  void chooseProduct();
  void selectProduct();
  void checkRemovalLocation();
  void checkInstallerLocation();
  void listPayload();
  [[nodiscard]] bool hasFailed() const { return isFailureState(installerState_); }
  [[nodiscard]] std::string productName() const { return configuration_.productName().value_or(""); }
  [[nodiscard]] bool productHasReceipt();
  [[nodiscard]] RunJournal& journal();

  [[nodiscard]] bool detectionPathExists(std::string_view path, std::string_view selector);
  /// Whether something lies at the path, links followed. Fails the run where nobody can tell.
  [[nodiscard]] bool isPresent(const std::string& path);

  /// Fails an install of which a component's manifest cannot be read, and warns of those that are missing or do not
  /// parse: they contribute nothing. After everything else that refuses a run.
  void checkComponentManifests();
  void warnOfMissingManifests(const std::vector<std::string>& components);
  [[nodiscard]] std::unique_ptr<QVNInstallStepStrategy> buildInstallTree();
  [[nodiscard]] std::unique_ptr<QVNInstallStepStrategy> buildReceiptTree();
  [[nodiscard]] std::unique_ptr<QVNInstallStepStrategy> buildRemovalTree();
  void appendStepsForPhase(const PropertyList& phase, const SharedPlan& installPlan, const SharedPlan& removalPlan,
                           StepList& steps);
  [[nodiscard]] StepList removalStepsForDetectedProduct(const PropertyList& detected, const PropertyList& crossGrades,
                                                        const SharedPlan& removalPlan);
  void refuseCrossGrade(const PropertyList& installedProduct);
  void announceCrossGrade(std::string_view installedProduct, bool asUpdate);
  template <class Step, class... Arguments>
  void append(StepList& steps, const PropertyList& phase, std::string name, const SharedPlan& plan,
              Arguments&&... arguments);

  QVNInstallConfiguration configuration_;
  bool productIsDetected_ = false;  // and not named by the caller
  std::unique_ptr<QVNInstallerManifest> manifest_;
  ProductLocks productLocks_;
  std::unique_ptr<RunJournal> journal_;
  std::unique_ptr<QVNInstallStepStrategy> strategy_;
  // What a watcher's thread may read while the tree is being made.
  std::atomic<QVNInstallStepStrategy*> watchedStrategy_ = nullptr;
  std::atomic<QVNInstallerState> installerState_ = QVNInstallerStateSuccess;
  std::atomic<bool> installationCancelled_ = false;
  std::atomic<bool> mainThreadComplete_ = false;
  std::unique_ptr<QVNReceiptClient> receiptClient_;  // works for steps of the tree, so it goes before them
  // Null when nobody is to watch. Its thread uses all of the above, so it ends first.
  std::unique_ptr<QVNInstallationStatusService> installationStatusService_;
};

}  // namespace deployer
