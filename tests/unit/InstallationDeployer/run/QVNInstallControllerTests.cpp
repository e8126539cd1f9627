#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/EngineNames.h"
#include "InstallationDeployer/installed/QVNRemoveComponentsStrategy.h"
#include "InstallationDeployer/processes/QVNProcessStopStrategy.h"
#include "InstallationDeployer/run/QVNInstallController.h"
#include "InstallationDeployer/steps/QVNAggregateInstallStrategy.h"
#include "general/foundation/files/FileManager.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRunFolder.h"
#include "tests/support/Unprivileged.h"
#include "tests/unit/InstallationDeployer/BundleFixture.h"

namespace deployer {
namespace {

using foundation::PropertyList;

/// Gives tests the tree of a run without running it.
class PlannedController : public QVNInstallController {
 public:
  using QVNInstallController::buildStrategies;
  using QVNInstallController::QVNInstallController;
};

/// Asks for its receipt client while its startup state is published, and counts how often that is shut down.
class ControllerWithClient : public QVNInstallController {
 public:
  using QVNInstallController::QVNInstallController;

  void setInstallerState(QVNInstallerState state) override {
    QVNInstallController::setInstallerState(state);
    if (state == QVNInstallerStatePreparing) {
      static_cast<void>(getReceiptClientForStrategy(step_));
    }
  }
  bool installationCancelled() const override {
    if (throws) {
      throw std::runtime_error("out of luck");
    }
    return QVNInstallController::installationCancelled();
  }

  bool throws = false;
  bool shutsDown = true;
  bool shutdownRaises = false;
  int shutdowns = 0;

 protected:
  std::unique_ptr<QVNReceiptClient> makeReceiptClient() override { return std::make_unique<Client>(*this); }

 private:
  class Client : public QVNReceiptClient {
   public:
    explicit Client(ControllerWithClient& controller) : controller_(controller) {}
    bool shutdownReceiptService() override {
      ++controller_.shutdowns;
      if (controller_.shutdownRaises) {
        throw std::runtime_error("broken");
      }
      return controller_.shutsDown;
    }

   private:
    ControllerWithClient& controller_;
  };

  QVNInstallStepStrategy step_{{}, "step", nullptr, *this, nullptr};
};

class InstallController : public ::testing::Test, protected tests::BundleFixture {
 protected:
  void SetUp() override {
    if (foundation::files::exists(std::string(kQVNInstallerReceiptPath))) {
      GTEST_SKIP() << "products are installed on this machine";
    }
    // Runs lock their product in the folder where root's processes meet.
    if (const auto reason = tests::enterPrivateRunFolder(); reason && geteuid() != 0) {
      GTEST_SKIP() << *reason;
    }
  }
  [[nodiscard]] QVNInstallConfiguration installOf(std::optional<std::string> product) const {
    QVNInstallConfiguration configuration;
    configuration.setTargetPath("/");
    configuration.setBundlePath(path());
    configuration.setInstall(true);
    configuration.setProductName(std::move(product));
    return configuration;
  }
  /// Names of the root's children, without the root's own.
  [[nodiscard]] static std::vector<std::string> childNames(const QVNInstallStepStrategy* root) {
    std::vector<std::string> found;
    if (const auto* composite = dynamic_cast<const QVNAggregateInstallStrategy*>(root)) {
      for (const auto& step : composite->steps()) {
        found.push_back(step->name());
      }
    }
    return found;
  }
  [[nodiscard]] static PropertyList detection(const std::string& product, PropertyList detectionPaths) {
    return dictionary({{"ProductName", product}, {"ProductDetectionPaths", std::move(detectionPaths)}});
  }
};

const std::vector<std::string> kLocalSteps = {"localPayload.buildPlan", "localPayload.remoteRemove",
                                              "localPayload.installComponents", "localPayload.launchServices"};

TEST_F(InstallController, SingleProductIsChosenWithoutTouchingTheDisk) {
  writeIndex(dictionary({{"Products", dictionary({{"Only", product({localPayload({})})}})},
                         {"ProductDetectionList", array({detection("Other", array({"/nowhere"}))})}}));
  QVNInstallController controller(installOf(std::nullopt));
  const tests::CapturedLog log;
  EXPECT_EQ(controller.productNameFromDetection(), "Only");
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(InstallController, FirstDetectedProductOfSeveralIsChosen) {
  const std::string present = directory().write("present", "");
  writeIndex(dictionary({{"Products", dictionary({{"A", product({})}, {"B", product({})}, {"C", product({})}})},
                         {"ProductDetectionList",
                          array({detection("A", array({"/nowhere/a"})), detection("B", array({PropertyList(present)})),
                                 detection("C", array({PropertyList(present)}))})}}));
  QVNInstallController controller(installOf(std::nullopt));
  const tests::CapturedLog log;
  EXPECT_EQ(controller.productNameFromDetection(), "B");
  EXPECT_TRUE(log.contains("Debug", "productIsDetectedFor:: checking detection path: /nowhere/a"));
  EXPECT_TRUE(log.contains("Debug", "Product detected to install: B"));
}

TEST_F(InstallController, DetectionPathOfWhichNobodyCanTellFailsTheRun) {
  const std::string hidden = directory().write("closed/present", "");
  ASSERT_EQ(chmod(directory().path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(directory().path("closed").c_str(), 0700), 0);
  QVNInstallController controller(installOf("A"));
  const tests::CapturedLog log;
  {
    const tests::Unprivileged nobody;
    ASSERT_TRUE(nobody.changed());
    EXPECT_FALSE(controller.oneOfCollectionExists(array({PropertyList(hidden)})));
  }
  EXPECT_EQ(controller.installerState(), QVNInstallerStateFailed);
  ASSERT_EQ(log.texts("Error").size(), 1U);
  EXPECT_TRUE(log.texts("Error")[0].starts_with("Unable to look for " + hidden + ". Error Domain=")) << log.text();
}

TEST_F(InstallController, MissingIndexFailsTheRunWithNoProductsAtAll) {
  QVNInstallController controller(installOf(std::nullopt));
  const tests::CapturedLog log;
  controller.startController();
  EXPECT_EQ(controller.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains("Error", "Unable to select product. Products = (null)"));
}

TEST_F(InstallController, NoDetectedProductFailsTheRun) {
  writeIndex(dictionary({{"Products", dictionary({{"A", product({})}, {"B", product({})}})},
                         {"ProductDetectionList", array({detection("A", array({"/nowhere"}))})}}));
  QVNInstallController controller(installOf(std::nullopt));
  const tests::CapturedLog log;
  controller.startController();
  EXPECT_EQ(controller.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains("Debug", "Product detected to install: (null)"));
  EXPECT_TRUE(log.contains("Error", "Unable to select product. Products = (\n    A,\n    B\n)"));
  EXPECT_TRUE(log.contains("Debug", "exiting startStatusServiceForError:"));
  EXPECT_FALSE(log.contains("Notice", "Installation complete"));
  EXPECT_TRUE(controller.mainThreadComplete());
}

TEST_F(InstallController, DetectionEntryThatIsAListNeedsOneOfItsPaths) {
  const std::string present = directory().write("b", "");
  QVNInstallController controller(installOf("P"));
  EXPECT_TRUE(controller.productIsDetectedFor(
      detection("P", array({array({PropertyList("/nowhere/a"), PropertyList(present)})}))));
  EXPECT_FALSE(controller.productIsDetectedFor(detection("P", array({array({PropertyList("/nowhere/a")})}))));
  EXPECT_FALSE(controller.productIsDetectedFor(detection("P", array({array({})}))));
}

TEST_F(InstallController, MissingDetectionPathFailsWhateverFollows) {
  const std::string present = directory().write("b", "");
  QVNInstallController controller(installOf("P"));
  const tests::CapturedLog log;
  EXPECT_FALSE(
      controller.productIsDetectedFor(detection("P", array({PropertyList("/nowhere/a"), PropertyList(present)}))));
  EXPECT_EQ(log.texts("Debug").size(), 1U);
}

TEST_F(InstallController, NumberAmongDetectionPathsIsLoggedAndFails) {
  QVNInstallController controller(installOf("P"));
  const tests::CapturedLog log;
  EXPECT_FALSE(controller.productIsDetectedFor(detection("P", array({PropertyList(7)}))));
  EXPECT_TRUE(log.contains("Error", "Expected to find NSString or NSArray instance. Found 7 in detection array"));
}

TEST_F(InstallController, ProductWithoutDetectionPathsIsDetected) {
  QVNInstallController controller(installOf("P"));
  EXPECT_TRUE(controller.productIsDetectedFor(dictionary({{"ProductName", "P"}})));
  EXPECT_TRUE(controller.productIsDetectedFor(detection("P", array({}))));
}

TEST_F(InstallController, DetectionPathsThatAreNoListAreLoggedAndFail) {
  const std::string present = directory().write("b", "");
  QVNInstallController controller(installOf("P"));
  const tests::CapturedLog log;
  EXPECT_FALSE(controller.productIsDetectedFor(detection("P", PropertyList(present))));
  EXPECT_FALSE(controller.productIsDetectedFor(detection("P", PropertyList(7))));
  EXPECT_FALSE(controller.productIsDetectedFor(detection("P", dictionary({}))));
  EXPECT_EQ(log.texts("Error"), (std::vector<std::string>{
                                    "Expected to find NSArray instance for ProductDetectionPaths. Found " + present,
                                    "Expected to find NSArray instance for ProductDetectionPaths. Found 7",
                                    "Expected to find NSArray instance for ProductDetectionPaths. Found {\n}",
                                }));
}

TEST_F(InstallController, RelativeDetectionPathLiesInThePayload) {
  directory().write("Installer.app/Contents/Install/Root/Core/marker", "");
  QVNInstallController controller(installOf("P"));
  EXPECT_TRUE(controller.productIsDetectedFor(detection("P", array({"Core/marker"}))));
  EXPECT_TRUE(controller.productIsDetectedFor(detection("P", array({"../Root/Core/marker"}))));
  EXPECT_FALSE(controller.productIsDetectedFor(detection("P", array({"Core/other"}))));
}

TEST_F(InstallController, RemovalOutsideTheReceiptIsRefused) {
  writeIndex(indexOfComponents("P", {}));
  QVNInstallConfiguration configuration;
  configuration.setBundlePath(path());
  configuration.setRemove(true);
  QVNInstallController controller(configuration);
  const tests::CapturedLog log;
  controller.startController();
  EXPECT_EQ(controller.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains("Error", "Remove operation cannot run from this location (" + path() +
                                        ")\n\tit must be run from the receipt location (/Library/Application "
                                        "Support/Corvane/P/Installer.app)"));
}

TEST_F(InstallController, ReceiptPathWithATrailingSlashIsNotTheReceipt) {
  QVNInstallConfiguration configuration;
  configuration.setBundlePath("/Library/Application Support/Corvane/P/Installer.app/");
  configuration.setRemove(true);
  configuration.setProductName("P");
  QVNInstallController controller(configuration);
  controller.startController();
  EXPECT_FALSE(controller.configuration().bundlePathIsReceipt());
  EXPECT_EQ(controller.installerState(), QVNInstallerStateFailed);
}

TEST_F(InstallController, RunWithoutModeReturnsWithoutTouchingTheState) {
  QVNInstallConfiguration configuration;
  configuration.setBundlePath(path());
  configuration.setProductName("P");
  QVNInstallController controller(configuration);
  controller.startController();
  EXPECT_EQ(controller.installerState(), QVNInstallerStateSuccess);
  EXPECT_FALSE(controller.mainThreadComplete());
}

TEST_F(InstallController, InstallerInsideTheInstalledProductIsRefused) {
  QVNInstallConfiguration configuration = installOf("P");
  configuration.setBundlePath("/Library/Corvane Anti-Virus/Installer.app");
  QVNInstallController controller(configuration);
  const tests::CapturedLog log;
  controller.startController();
  EXPECT_EQ(controller.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains("Error", "Corvane Endpoint Installer cannot run from this location."));
}

TEST_F(InstallController, ProductNameThatIsNoFolderNameIsRefused) {
  writeIndex(indexOfComponents("../../tmp/evil", {}));
  QVNInstallController controller(installOf(std::nullopt));
  const tests::CapturedLog log;
  controller.startController();
  EXPECT_EQ(controller.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains("Error", "The product name \"../../tmp/evil\" cannot be the name of a folder."));
}

TEST_F(InstallController, WatchedRunWaitsUntilItsServiceIsToldToEnd) {
  if (const auto reason = tests::enterPrivateRunFolder()) {
    GTEST_SKIP() << *reason;
  }
  writeIndex(indexOfComponents("P", {}));
  for (const char* product : {"Q", "../P"}) {
    QVNInstallConfiguration configuration = installOf(product);
    configuration.setStatusServer(true);
    QVNInstallController controller(configuration);
    EXPECT_EQ(controller.statusServerThread(), nullptr);
    const tests::CapturedLog log;
    std::thread mainThread([&] {
      const EngineLog engineLog;
      controller.startController();
    });
    while (!controller.mainThreadComplete()) {
      std::this_thread::yield();
    }
    EXPECT_NE(controller.statusServerThread(), nullptr);
    controller.shutdownStatusService();
    mainThread.join();
    EXPECT_EQ(controller.installerState(), QVNInstallerStateFailed);
    // Told of the end first, and only then on its way out.
    const std::string text = log.text();
    const auto told = text.find("Setting exit condition for the main run loop");
    EXPECT_NE(told, std::string::npos);
    EXPECT_LT(told, text.find("exiting start"));
    EXPECT_NE(text.find("exiting start"), std::string::npos);
    EXPECT_NE(text.find("stateUpdatedNotification]"), std::string::npos);
  }
}

TEST_F(InstallController, WithoutTheLockOfItsProductARunChangesNothing) {
  if (const auto reason = tests::enterPrivateRunFolder()) {
    GTEST_SKIP() << *reason;
  }
  writeIndex(indexOfComponents("P", {}));
  directory().write("elsewhere", "");
  std::filesystem::create_symlink(directory().path("elsewhere"), "/var/run/com.corvane.installer");
  QVNInstallController controller(installOf("P"));
  const tests::CapturedLog log;
  controller.startController();
  EXPECT_EQ(controller.installerState(), QVNInstallerStateFailed);
  EXPECT_EQ(controller.strategy(), nullptr);
  EXPECT_EQ(log.texts("Error"),
            std::vector<std::string>{"Unable to open the folder for connections /var/run/com.corvane.installer. "
                                     "Not a directory"});
}

TEST_F(InstallController, UnwatchedRunHasNoService) {
  QVNInstallController controller(installOf("Q"));
  const tests::CapturedLog log;
  controller.startController();
  EXPECT_EQ(controller.statusServerThread(), nullptr);
  controller.shutdownStatusService();
  EXPECT_EQ(log.text().find("QVNInstallationStatusService"), std::string::npos);
}

TEST_F(InstallController, OneReceiptClientServesTheStepsOfARun) {
  writeIndex(indexOfComponents("P", {}));
  PlannedController controller(installOf("P"));
  const auto root = controller.buildStrategies();
  const auto& steps = dynamic_cast<const QVNAggregateInstallStrategy&>(*root).steps();
  QVNReceiptClient* const client = controller.getReceiptClientForStrategy(*steps[0]);
  ASSERT_NE(client, nullptr);
  EXPECT_EQ(controller.getReceiptClientForStrategy(*steps[1]), client);
}

TEST_F(InstallController, ReceiptServiceIsShutDownAfterSuccessFailureAndExceptions) {
  struct Case {
    const char* product;
    bool throws;
    const char* error;
  };
  for (const Case& tried :
       {Case{"Q", false, "The product Q does not exist in the manifest. InstallPhaseDictionaries = (null)"},
        Case{"P", true, "The run cannot go on. out of luck"}}) {
    writeIndex(indexOfComponents("P", {}));
    ControllerWithClient controller(installOf(tried.product));
    controller.throws = tried.throws;
    const tests::CapturedLog log;
    controller.startController();
    EXPECT_EQ(controller.installerState(), QVNInstallerStateFailed);
    EXPECT_EQ(controller.shutdowns, 1);
    EXPECT_TRUE(log.contains("Error", tried.error)) << log.text();
    EXPECT_FALSE(log.contains("Error", "Unable to shutdown the receipt service."));
    EXPECT_TRUE(log.contains("Notice", "Installation complete"));
    EXPECT_TRUE(controller.mainThreadComplete());
  }
}

TEST_F(InstallController, ReceiptServiceThatDoesNotShutDownIsLoggedAndChangesNothing) {
  for (const bool raises : {false, true}) {
    ControllerWithClient controller(installOf("Q"));
    controller.shutsDown = false;
    controller.shutdownRaises = raises;
    const tests::CapturedLog log;
    controller.startController();
    EXPECT_EQ(controller.shutdowns, 1);
    EXPECT_EQ(log.count("Error", "Unable to shutdown the receipt service."), 1U);
    EXPECT_EQ(controller.installerState(), QVNInstallerStateFailed);
    EXPECT_TRUE(log.contains("Debug", "exiting startController"));
  }
}

TEST_F(InstallController, ReceiptModeTakesTheProductFromItsFolder) {
  QVNInstallConfiguration configuration;
  configuration.setBundlePath("/Library/Application Support/Corvane/Some Product/Installer.app");
  configuration.setReceipt(true);
  configuration.setStatusServer(true);
  const tests::CapturedLog log;
  const QVNInstallController controller(configuration);
  EXPECT_TRUE(log.contains("Debug", "Receipt for installed product: Some Product"));
  EXPECT_EQ(controller.postingNotificationId(),
            "/Library/Application Support/Corvane/Some Product/Installer.app.receipt");
}

TEST_F(InstallController, NotificationsOfAnInstallNameTheBundle) {
  const QVNInstallController controller(installOf("P"));
  EXPECT_EQ(controller.postingNotificationId(), path());
  EXPECT_EQ(controller.installerPath(), path());
  EXPECT_EQ(controller.installerRootPath(), path("Contents/Install/Root"));
}

TEST_F(InstallController, StateChangesAreLoggedAndFailureIsAnnounced) {
  QVNInstallController controller(installOf("P"));
  const tests::CapturedLog log;
  controller.notifyInstallFailure();
  EXPECT_EQ(controller.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains("Debug", "Inform the user of error: 1"));
  EXPECT_TRUE(controller.updateProductCache());
  EXPECT_EQ(controller.installerState(), QVNInstallerStateDownloading);
  EXPECT_TRUE(log.contains("Debug", "updateProductCache"));
  EXPECT_EQ(controller.getProgress(), 0U);
  EXPECT_FALSE(controller.installationCancelled());
  controller.cancelInstallation();
  EXPECT_TRUE(controller.installationCancelled());
}

TEST_F(InstallController, FreshInstallTreeHasTheLocalStepsAndTheReceipt) {
  writeIndex(indexOfComponents("P", {"A"}));
  PlannedController controller(installOf("P"));
  const tests::CapturedLog log;
  const auto root = controller.buildStrategies();
  auto expected = kLocalSteps;
  expected.emplace_back("writeReceipt");
  EXPECT_EQ(childNames(root.get()), expected);
  EXPECT_EQ(root->name(), "installer");
  EXPECT_TRUE(log.contains("Notice", "Fresh install of the \"P\" product."));
  const auto& steps = dynamic_cast<const QVNAggregateInstallStrategy&>(*root).steps();
  EXPECT_TRUE(steps[0]->installPhaseDictionary().isDictionary());
  EXPECT_TRUE(steps[1]->installPhaseDictionary().isNil());
  EXPECT_TRUE(steps[2]->installPhaseDictionary().isDictionary());
  EXPECT_TRUE(steps[3]->installPhaseDictionary().isDictionary());
  EXPECT_TRUE(steps[4]->installPhaseDictionary().isNil());
  for (const auto& step : steps) {
    EXPECT_EQ(step->plan(), steps[0]->plan());
    EXPECT_NE(step->plan(), nullptr);
  }
}

TEST_F(InstallController, TwoLocalPhasesGiveTheirStepsTwiceAndOneReceipt) {
  writeIndex(dictionary({{"Products", dictionary({{"P", product({localPayload({"A"}), localPayload({"B"})})}})}}));
  PlannedController controller(installOf("P"));
  auto expected = kLocalSteps;
  expected.insert(expected.end(), kLocalSteps.begin(), kLocalSteps.end());
  expected.emplace_back("writeReceipt");
  EXPECT_EQ(childNames(controller.buildStrategies().get()), expected);
}

TEST_F(InstallController, ExternalPhaseGetsItsStepAfterTheLocalOnes) {
  const PropertyList external =
      dictionary({{"InstallPhaseType", "ExternalInstallationDeployer"}, {"BundlePath", "/b"}, {"ProductName", "Q"}});
  writeIndex(dictionary({{"Products", dictionary({{"P", product({localPayload({"A"}), external})}})}}));
  PlannedController controller(installOf("P"));
  auto expected = kLocalSteps;
  expected.emplace_back("externalDeployer");
  expected.emplace_back("writeReceipt");
  const auto root = controller.buildStrategies();
  EXPECT_EQ(childNames(root.get()), expected);
  EXPECT_EQ(dynamic_cast<const QVNAggregateInstallStrategy&>(*root).steps()[4]->installPhaseDictionary(), external);
}

TEST_F(InstallController, UnknownProductFailsWithTheMissingPhases) {
  writeIndex(indexOfComponents("P", {}));
  QVNInstallController controller(installOf("Q"));
  const tests::CapturedLog log;
  controller.startController();
  EXPECT_EQ(controller.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains("Error", "The product Q does not exist in the manifest. InstallPhaseDictionaries = (null)"));
  EXPECT_TRUE(log.contains("Notice", "Installing Q"));
  EXPECT_TRUE(log.contains("Notice", "Installation complete"));
}

TEST_F(InstallController, UnknownFirstPhaseFailsAndRunsNothing) {
  const PropertyList unknown = dictionary({{"InstallPhaseType", "Teleport"}});
  writeIndex(dictionary({{"Products", dictionary({{"P", product({unknown, localPayload({"A"})})}})}}));
  QVNInstallController controller(installOf("P"));
  const tests::CapturedLog log;
  controller.startController();
  EXPECT_EQ(controller.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains("Error",
                           "No strategy created for install phaseDictionary dictionary: {\n    InstallPhaseType = "
                           "Teleport;\n}"));
  EXPECT_EQ(childNames(controller.strategy()), std::vector<std::string>{"writeReceipt"});
  for (const std::string& text : log.texts("Debug")) {
    EXPECT_FALSE(text.starts_with(">>> executing")) << text;
  }
}

TEST_F(InstallController, UnknownPhaseIsSkippedSilentlyBehindRemovalSteps) {
  const PropertyList unknown = dictionary({{"InstallPhaseType", "Teleport"}});
  const PropertyList crossGrade =
      dictionary({{"ProductName", "Old"}, {"AllowCrossGrades", true}, {"TreatAsUpdate", false}});
  const PropertyList removal = dictionary({{"ProductName", "Old"}, {"ListOfComponents", array({"OldCore"})}});
  writeIndex(dictionary({{"Products", dictionary({{"P", product({unknown}, array({crossGrade}))}})},
                         {"ProductRemovals", array({removal})}}));
  PlannedController controller(installOf("P"));
  const tests::CapturedLog log;
  EXPECT_EQ(childNames(controller.buildStrategies().get()),
            (std::vector<std::string>{"preinstall.stopProcesses", "preinstall.removeComponents", "writeReceipt"}));
  EXPECT_EQ(controller.installerState(), QVNInstallerStateSuccess);
  EXPECT_TRUE(log.texts("Error").empty());
}

TEST_F(InstallController, DetectedProductTreatedAsUpdateIsCachedStoppedRemovedAndRestored) {
  const PropertyList crossGrade =
      dictionary({{"ProductName", "Old"}, {"AllowCrossGrades", true}, {"TreatAsUpdate", true}});
  const PropertyList removal =
      dictionary({{"ProductName", "Old"}, {"ListOfComponents", array({"OldCore", "OldAgent"})}});
  writeIndex(dictionary({{"Products", dictionary({{"P", product({localPayload({"A"})}, array({crossGrade}))}})},
                         {"ProductRemovals", array({removal})}}));
  PlannedController controller(installOf("P"));
  const tests::CapturedLog log;
  const auto root = controller.buildStrategies();
  EXPECT_EQ(
      childNames(root.get()),
      (std::vector<std::string>{"preinstall.cacheComponent", "preinstall.stopProcesses", "preinstall.removeComponents",
                                "localPayload.buildPlan", "localPayload.remoteRemove", "localPayload.installComponents",
                                "postinstall.restoreCacheComponent", "localPayload.launchServices", "writeReceipt"}));
  EXPECT_TRUE(controller.configuration().treatAsUpdate());
  EXPECT_TRUE(log.contains("Notice",
                           "Installing the \"P\" product. Detected the \"Old\" product. The previous product will be "
                           "treated as an update."));
  const auto& steps = dynamic_cast<const QVNAggregateInstallStrategy&>(*root).steps();
  EXPECT_EQ(*steps[0]->plan(), (Plan{"OldCore", "OldAgent"}));
  EXPECT_EQ(steps[6]->plan(), steps[0]->plan());
  EXPECT_NE(steps[3]->plan(), steps[0]->plan());
  EXPECT_TRUE(dynamic_cast<const QVNProcessStopStrategy&>(*steps[1]).isLocal());
}

TEST_F(InstallController, DetectedProductThatIsNoUpdateIsStoppedAndRemovedWithoutCache) {
  const PropertyList crossGrade = dictionary({{"ProductName", "Old"}, {"AllowCrossGrades", "YES"}});
  const PropertyList removal = dictionary({{"ProductName", "Old"}, {"ListOfComponents", array({"OldCore"})}});
  writeIndex(dictionary({{"Products", dictionary({{"P", product({localPayload({"A"})}, array({crossGrade}))}})},
                         {"ProductRemovals", array({removal})}}));
  PlannedController controller(installOf("P"));
  const tests::CapturedLog log;
  EXPECT_EQ(
      childNames(controller.buildStrategies().get()),
      (std::vector<std::string>{"preinstall.stopProcesses", "preinstall.removeComponents", "localPayload.buildPlan",
                                "localPayload.remoteRemove", "localPayload.installComponents",
                                "localPayload.launchServices", "writeReceipt"}));
  EXPECT_TRUE(log.contains("Notice",
                           "Installing the \"P\" product. Detected the \"Old\" product. The previous product will be "
                           "removed and the new product will be installed."));
}

TEST_F(InstallController, DetectedProductThatMayNotBeCrossGradedEndsWithThree) {
  const PropertyList removal = dictionary({{"ProductName", "Old"}, {"ListOfComponents", array({"OldCore"})}});
  const std::vector<PropertyList> crossGradeLists = {
      PropertyList(), array({dictionary({{"ProductName", "Other"}, {"AllowCrossGrades", true}})}),
      array({dictionary({{"ProductName", "Old"}, {"AllowCrossGrades", false}})}),
      array({dictionary({{"ProductName", "Old"}})})};
  for (const PropertyList& crossGrades : crossGradeLists) {
    writeIndex(dictionary({{"Products", dictionary({{"P", product({localPayload({"A"})}, crossGrades)}})},
                           {"ProductRemovals", array({removal})}}));
    QVNInstallController controller(installOf("P"));
    const tests::CapturedLog log;
    controller.startController();
    EXPECT_EQ(controller.installerState(), QVNInstallerStateIncompatibleProduct);
    EXPECT_TRUE(log.contains("Error",
                             "The \"Old\" product is already installed. Remove the existing product before installing "
                             "the \"P\" product."));
    EXPECT_EQ(controller.strategy(), nullptr);
  }
}

TEST_F(InstallController, FirstPhaseThatIsNoPayloadEndsTheRunWithItsMessage) {
  const PropertyList unknown = dictionary({{"InstallPhaseType", "Teleport"}});
  const PropertyList crossGrade = dictionary({{"ProductName", "Old"}, {"AllowCrossGrades", true}});
  // The removal steps of the detected product let the unknown first phase pass; the plan then finds no payload in it.
  writeIndex(
      dictionary({{"Products", dictionary({{"P", product({unknown, localPayload({"A"})}, array({crossGrade}))}})},
                  {"ProductRemovals", array({dictionary({{"ProductName", "Old"}})})}}));
  writeManifest("A", dictionary({{"ComponentVersion", "1"}}));
  QVNInstallController controller(installOf("P"));
  const tests::CapturedLog log;
  controller.startController();
  EXPECT_EQ(controller.installerState(), QVNInstallerStateFailed);
  EXPECT_EQ(log.texts("Error"), std::vector<std::string>{"Install Phase 0 of Product P is not LocalPayload"});
}

TEST_F(InstallController, RemovalTreeWithoutCleanupHasFourSteps) {
  writeIndex(indexOfComponents("P", {"A"}));
  QVNInstallConfiguration configuration;
  configuration.setBundlePath(path());
  configuration.setRemove(true);
  configuration.setProductName("P");
  PlannedController controller(configuration);
  const tests::CapturedLog log;
  const auto root = controller.buildStrategies();
  EXPECT_EQ(root->name(), "remover");
  EXPECT_EQ(childNames(root.get()),
            (std::vector<std::string>{"buildRemovePlan", "stopProcesses", "removeFiles", "removeReceipt"}));
  EXPECT_TRUE(log.contains("Debug",
                           "removeSteps = (\n    \"<QVNBuildRemovePlanStrategy: > buildRemovePlan\",\n    "
                           "\"<QVNProcessStopStrategy: > stopProcesses\",\n    \"<QVNRemoveComponentsStrategy: > "
                           "removeFiles\",\n    \"<QVNRemoveReceiptStrategy: > removeReceipt\"\n)"));
}

TEST_F(InstallController, RemovalTreeWithCleanupRunsItLocallyOnItsOwnPlan) {
  writeIndex(dictionary({{"Products", dictionary({{"P", product({localPayload({"A"})})}})},
                         {"ProductCleanup", dictionary({{"ListOfComponents", array({"Old1", "Old2"})}})}}));
  QVNInstallConfiguration configuration;
  configuration.setBundlePath(path());
  configuration.setRemove(true);
  configuration.setProductName("P");
  PlannedController controller(configuration);
  const auto root = controller.buildStrategies();
  EXPECT_EQ(childNames(root.get()),
            (std::vector<std::string>{"buildRemovePlan", "stopProcesses", "removeFiles", "cleanup.stopProcesses",
                                      "cleanup.removeComponents", "removeReceipt"}));
  const auto& steps = dynamic_cast<const QVNAggregateInstallStrategy&>(*root).steps();
  EXPECT_FALSE(dynamic_cast<const QVNProcessStopStrategy&>(*steps[1]).isLocal());
  EXPECT_FALSE(dynamic_cast<const QVNRemoveComponentsStrategy&>(*steps[2]).isLocal());
  EXPECT_TRUE(dynamic_cast<const QVNProcessStopStrategy&>(*steps[3]).isLocal());
  EXPECT_TRUE(dynamic_cast<const QVNRemoveComponentsStrategy&>(*steps[4]).isLocal());
  EXPECT_EQ(*steps[3]->plan(), (Plan{"Old1", "Old2"}));
  EXPECT_EQ(steps[3]->plan(), steps[4]->plan());
  EXPECT_EQ(steps[0]->plan(), steps[5]->plan());
}

TEST_F(InstallController, ReceiptTreeIsOneStepWithoutPlan) {
  QVNInstallConfiguration configuration;
  configuration.setBundlePath(path());
  configuration.setReceipt(true);
  PlannedController controller(configuration);
  const tests::CapturedLog log;
  const auto root = controller.buildStrategies();
  EXPECT_EQ(root->description(), "<QVNReceiptServiceStrategy: > receiptService");
  EXPECT_EQ(root->plan(), nullptr);
  EXPECT_EQ(log.texts("Info").size(), 1U);
  EXPECT_TRUE(log.texts("Info")[0].starts_with("Running as receipt for product "));
}

}  // namespace
}  // namespace deployer
