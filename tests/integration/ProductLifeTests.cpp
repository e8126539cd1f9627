#include <csignal>

#include "tests/integration/ProductLife.h"

namespace tests {
namespace {

TEST_F(ProductLife, AnUpgradeChangesWhatChangedAndKeepsWhatTheUserEdited) {
  installFirstVersion();
  const ino_t tools = inodeOf("/opt/tools/one");
  root().forgetRecordedCalls();
  deliverNewBundle();
  const auto outcome = install();
  ASSERT_EQ(outcome.exitCode, 0) << outcome.description();

  EXPECT_EQ(root().readFile("/Library/Guard/core"), "core, second edition");
  EXPECT_EQ(root().readFile("/Library/Guard/more"), "more");
  EXPECT_EQ(root().readFile(kConfiguration), "edited by the user");
  EXPECT_EQ(root().readFile("/Library/Guard/licence"), "licensed");
  EXPECT_EQ(root().readFile("/opt/extra/new"), "new");
  EXPECT_EQ(inodeOf("/opt/tools/one"), tools);
  EXPECT_TRUE(root().exists(std::string(kReceipt) + "/Contents/Install/Manifests/Extra.plist"));
  EXPECT_FALSE(root().exists(std::string(kReceipt) + "/Contents/Install/Manifests/Legacy.plist"));
  EXPECT_FALSE(root().exists("/Library/Application Support/Corvane/Guard/temp"));

  EXPECT_TRUE(logged(outcome, "Notice", "Upgrading the \"Guard\" product"));
  EXPECT_TRUE(logged(outcome, "Info", "Adding changed component Core to upgrade plan"));
  EXPECT_TRUE(logged(outcome, "Info", "Adding component Extra to upgrade plan"));
  EXPECT_TRUE(logged(outcome, "Notice", "Fix plan is empty. Nothing to fix"));
  EXPECT_EQ(enginesRunning(), "");
}

TEST_F(ProductLife, AComponentThatTheNewVersionDroppedIsRemovedAndNotInstalled) {
  installFirstVersion();
  deliverNewBundle();
  const auto outcome = install();
  ASSERT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_TRUE(logged(outcome, "Info", "Adding component Legacy to upgrade plan"));
  EXPECT_FALSE(root().exists("/opt/legacy"));
  EXPECT_FALSE(loggedAnything(outcome, "Error")) << outcome.standardError;
}

TEST_F(ProductLife, TheReceiptIsLaunchedOnceAndAskedInOrder) {
  installFirstVersion();
  deliverNewBundle();
  const auto outcome = install();
  const std::string receipt(kReceipt);
  const std::string object = receipt + ".receipt";
  EXPECT_EQ(logged(outcome, "Debug",
                   "----- registered observers on com.corvane.installer.receipt.started and "
                   "com.corvane.installer.deployer.started with object " +
                       object),
            1);
  EXPECT_EQ(logged(outcome, "Info", "Running as receipt for product Guard"), 1);
  EXPECT_EQ(logged(outcome, "Debug", "----- posting com.corvane.installer.receipt.started with object: " + object), 1);
  EXPECT_EQ(logged(outcome, "Debug", "received shutDownService message for receipt service"), 1);
  EXPECT_TRUE(loggedBeginning(outcome, "Debug",
                              "<main thread>[QVNReceiptServiceStrategy setupReceiptService]\n\treceiptPath = " +
                                  receipt + "\n\tserviceName = com.corvane.installer.receipt."));
  EXPECT_TRUE(loggedBeginning(
      outcome, "Debug", "<main thread>startReceiptService >> receiptServiceName = com.corvane.installer.receipt."));
  EXPECT_TRUE(loggedBeginning(outcome, "Debug",
                              "Initialized receipt proxy. self.receiptProxy = <CorvaneDistantObject: "
                              "com.corvane.installer.receipt."))
      << outcome.standardError;
  EXPECT_EQ(logged(outcome, "Debug", "exiting main run loop."), 1);
  EXPECT_TRUE(loggedBeginning(outcome, "Debug",
                              "Sending shutdownService to receipt service: "
                              "<QVNInstallationReceiptProtocol>com.corvane.installer."));
  EXPECT_EQ(logged(outcome, "Notice", "\"receiptService.removeComponents\" success: YES"), 1);
}

TEST_F(ProductLife, WithNothingToDoNothingIsTouched) {
  installFirstVersion();
  const support::Snapshot before = machine();
  const ino_t receipt = inodeOf(kReceipt);
  const auto outcome = install();
  ASSERT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(machine(), before);
  EXPECT_EQ(inodeOf(kReceipt), receipt);
  EXPECT_TRUE(logged(outcome, "Notice", "Upgrade plan is empty. Nothing to upgrade"));
  EXPECT_TRUE(logged(outcome, "Notice", "Fix plan is empty. Nothing to fix"));
  EXPECT_TRUE(logged(outcome, "Info", "Empty plan. Nothing to install"));
  EXPECT_EQ(enginesRunning(), "");
}

TEST_F(ProductLife, AMissingFileIsRepairedAndOtherComponentsAreLeftAlone) {
  installFirstVersion();
  const support::Snapshot before = machine();
  const ino_t core = inodeOf("/Library/Guard/core");
  ASSERT_TRUE(root().shell("rm /opt/tools/one").succeeded());
  const auto outcome = install();
  ASSERT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(machine(), before);
  EXPECT_EQ(inodeOf("/Library/Guard/core"), core);
  EXPECT_TRUE(logged(outcome, "Info", "File /opt/tools/one is missing. adding Tools component to fixPlan"));
  EXPECT_TRUE(logged(outcome, "Notice", "Fix plan is: (Tools)"));
  EXPECT_EQ(enginesRunning(), "");
}

TEST_F(ProductLife, AChangedExternalFileIsInstalledAgain) {
  installFirstVersion();
  root().writeFile(kLicence, "licensed for longer");
  const auto outcome = install();
  ASSERT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(root().readFile("/Library/Guard/licence"), "licensed for longer");
  EXPECT_EQ(root().readFile(kConfiguration), "edited by the user");
  EXPECT_TRUE(logged(outcome, "Info", "Adding component Core to upgrade plan due to external file change"));
}

TEST_F(ProductLife, ARemovalFromTheReceiptLeavesTheMachineAsItWas) {
  const support::Snapshot before = machine();
  installFirstVersion();
  const auto outcome = removeProduct();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(support::listing(machine()), support::listing(before));
  EXPECT_FALSE(loggedAnything(outcome, "Error")) << outcome.standardError;
  EXPECT_EQ(enginesRunning(), "");
}

TEST_F(ProductLife, ARemovalAfterAnUpgradeLeavesTheMachineAsItWas) {
  const support::Snapshot before = machine();
  installFirstVersion();
  deliverNewBundle();
  ASSERT_EQ(install().exitCode, 0);
  EXPECT_EQ(removeProduct().exitCode, 0);
  EXPECT_EQ(support::listing(machine()), support::listing(before));
}

TEST_F(ProductLife, ARemovalKeepsFilesThatAreNotTheProducts) {
  installFirstVersion();
  root().writeFile("/Library/Guard/notes", "of the user");
  EXPECT_EQ(removeProduct().exitCode, 0);
  EXPECT_EQ(root().readFile("/Library/Guard/notes"), "of the user");
  EXPECT_FALSE(root().exists("/Library/Guard/core"));
}

TEST_F(ProductLife, ASecondProductThatSharesAComponentRepairsItWhenTheFirstIsRemoved) {
  const support::Snapshot before = machine();
  installFirstVersion();
  BundleMaker shield(CORVANE_ENGINE);
  shield.stageFile("Tools", "/opt/tools/one", "one", 0755);
  shield.addComponent("Tools", "1.0", "Shield");
  shield.stageFile("Shield", "/opt/shield/s", "s");
  shield.addComponent("Shield", "1.0", "Shield");
  deliver(shield);
  const auto second = install();
  ASSERT_EQ(second.exitCode, 0) << second.description();
  EXPECT_TRUE(logged(second, "Notice", "Fresh install of the \"Shield\" product."));

  ASSERT_EQ(removeProduct().exitCode, 0);
  EXPECT_FALSE(root().exists("/Library/Guard"));
  EXPECT_FALSE(root().exists("/Library/Application Support/Corvane/Guard"));
  EXPECT_TRUE(root().exists("/Library/Application Support/Corvane/Shield"));

  const auto repair = install();
  ASSERT_EQ(repair.exitCode, 0) << repair.description();
  EXPECT_EQ(root().readFile("/opt/tools/one"), "one");
  const auto removal = root().run(
      {"/Library/Application Support/Corvane/Shield/Installer.app/Contents/MacOS/InstallationDeployer", "--remove"});
  EXPECT_EQ(removal.exitCode, 0) << removal.description();
  EXPECT_EQ(support::listing(machine()), support::listing(before));
  EXPECT_EQ(enginesRunning(), "");
}

TEST_F(ProductLife, AFailedUpgradeLeavesNoReceiptProcessAndTheNextOneSucceeds) {
  installFirstVersion();
  deliverNewBundle();
  const std::string payload = newBundle().payloadPath("Core", "/Library/Guard/core").substr(newBundle().path().size());
  root().writeFile(kBundle + payload, "forged");
  const auto outcome = install();
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_TRUE(noEngineIsLeft()) << enginesRunning();
  deliverNewBundle();
  const auto next = install();
  EXPECT_EQ(next.exitCode, 0) << next.description();
  EXPECT_EQ(root().readFile("/Library/Guard/core"), "core, second edition");
  EXPECT_EQ(root().readFile(kConfiguration), "edited by the user");
}

TEST_F(ProductLife, EveryRunSaysFirstWhatItIsAndForWhichProduct) {
  deliverBundle();
  const auto first = install();
  EXPECT_EQ(logged(first, "Notice", "Installing Guard"), 1) << first.standardError;
  EXPECT_EQ(logged(first, "Notice", "Starting receipt service for Guard"), 0);
  const auto again = install();
  EXPECT_EQ(again.exitCode, 0) << again.description();
  EXPECT_EQ(logged(again, "Notice", "Installing Guard"), 1) << again.standardError;
  EXPECT_EQ(logged(again, "Notice", "Starting receipt service for Guard"), 1) << again.standardError;
  EXPECT_EQ(logged(again, "Info", "Running as receipt for product Guard"), 1) << again.standardError;
  const auto removal = removeProduct();
  EXPECT_EQ(removal.exitCode, 0) << removal.description();
  EXPECT_EQ(logged(removal, "Notice", "Removing Guard"), 1) << removal.standardError;
  EXPECT_EQ(logged(removal, "Notice", "Installing Guard"), 0);
}

TEST_F(ProductLife, AnUpgradeFromABundleWithoutAManifestTakesWhatItListedBeforeAndPutsNothingInItsPlace) {
  for (const char* damage : {"rm -f", "truncate -s 100", "truncate -s 0"}) {
    SCOPED_TRACE(damage);
    beginAgain();
    installFirstVersion();
    deliverNewBundle();
    const std::string manifest = inBundle("Contents/Install/Manifests/Core.plist");
    ASSERT_TRUE(root().shell(std::string(damage) + " '" + manifest + "'").succeeded());
    const auto outcome = install();
    EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
    EXPECT_EQ(logged(outcome, "Warning",
                     "The manifest of component Core is missing or damaged: " + manifest + ". It contributes nothing."),
              1)
        << outcome.standardError;
    EXPECT_FALSE(root().exists("/Library/Guard/core"));
    EXPECT_EQ(root().readFile(kConfiguration), "edited by the user");
    EXPECT_EQ(root().readFile("/opt/extra/new"), "new");
  }
}

TEST_F(ProductLife, AnUpgradeFromABundleWhoseManifestCannotBeReadChangesNothingAndTheNextOneSucceeds) {
  installFirstVersion();
  const support::Snapshot before = machine();
  deliverNewBundle();
  const std::string manifest = inBundle("Contents/Install/Manifests/Core.plist");
  ASSERT_TRUE(root().shell("rm '" + manifest + "' && mkdir '" + manifest + "'").succeeded());
  const auto outcome = install();
  EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Failed to read manifest for Core. Error Domain="));
  EXPECT_EQ(difference(machine(), before), "");
  deliverNewBundle();
  const auto next = install();
  EXPECT_EQ(next.exitCode, 0) << next.description();
  EXPECT_EQ(root().readFile("/Library/Guard/core"), "core, second edition");
  EXPECT_EQ(root().readFile(kConfiguration), "edited by the user");
}

TEST_F(ProductLife, ADamagedReceiptIsMendedFromTheBundleThatInstalledTheProduct) {
  installFirstVersion();
  const std::string manifest = std::string(kReceipt) + "/Contents/Install/Manifests/Core.plist";
  ASSERT_TRUE(root().shell("mkdir /opt/kept && cp -R '" + std::string(kBundle) + "/Contents' /opt/kept").succeeded());
  ASSERT_TRUE(root().shell("rm '" + manifest + "'").succeeded());
  deliverNewBundle();
  const auto refused = install();
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_TRUE(logged(refused, "Error", "Unable to retreive ComponentVersion for component Core"));
  EXPECT_EQ(root().readFile("/Library/Guard/core"), "core 1");
  EXPECT_TRUE(root().exists("/opt/legacy/old"));

  const std::string receipt(kReceipt);
  ASSERT_TRUE(root()
                  .shell("cp -R /opt/kept/Contents/Install/Manifests '" + receipt + "/Contents/Install' && " +
                         "cp -R /opt/kept/Contents/MacOS '" + receipt + "/Contents' && rm -r /opt/kept")
                  .succeeded());
  const auto upgraded = install();
  EXPECT_EQ(upgraded.exitCode, 0) << upgraded.description();
  EXPECT_EQ(root().readFile("/Library/Guard/core"), "core, second edition");
  EXPECT_EQ(root().readFile(kConfiguration), "edited by the user");
  EXPECT_FALSE(root().exists("/opt/legacy"));
}

/// What a receipt that misbehaves does to a run: a program of the tests stands in for its engine.
class OddReceipt : public ProductLife {
 protected:
  void prepare() override {
    ProductLife::prepare();
    installFirstVersion();
    root().copyIn(CORVANE_RECEIPT_STAND_IN, kReceiptEngine);
  }
  template <class... Behaviour>
  static support::RunOptions with(const Behaviour&... behaviour) {
    support::RunOptions options;
    (options.environment.emplace_back(behaviour), ...);
    return options;
  }
  static std::string ended(const std::string& how) {
    return "The receipt process " + std::string(kReceiptEngine) + " ended " + how;
  }
  /// The run fails with state 1, says so once, and leaves no process behind.
  void expectFailedRun(const std::string& behaviour, const std::string& error) {
    const auto outcome = install(with(behaviour));
    EXPECT_EQ(outcome.exitCode, 1) << behaviour << "\n" << outcome.standardError;
    EXPECT_EQ(logged(outcome, "Error", error), 1) << behaviour << "\n" << outcome.standardError;
    EXPECT_FALSE(logged(outcome, "Notice", "\"installer\" success: YES")) << behaviour;
    EXPECT_TRUE(noEngineIsLeft()) << enginesRunning();
  }
};

TEST_F(OddReceipt, OneThatFindsNothingInstalledHasEverythingInstalledAgain) {
  const auto outcome = install();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.standardError;
  EXPECT_EQ(root().readFile(kConfiguration), "edited by the user");
  EXPECT_EQ(enginesRunning(), "");
}

TEST_F(OddReceipt, OneThatDiesBeforeItCanBeReachedFailsTheRun) {
  expectFailedRun("RECEIPT_DIES=start", ended("before its services could be reached (signal 9)."));
  expectFailedRun("RECEIPT_DIES=half", ended("before its services could be reached (signal 9)."));
}

TEST_F(OddReceipt, OneThatDiesInsteadOfAnsweringFailsTheRun) {
  for (const char* message :
       {"receipt.componentsAndVersions", "receipt.fixPlanForValidation", "receipt.removeComponents:"}) {
    expectFailedRun(std::string("RECEIPT_DIES=") + message, ended("unexpectedly (signal 9)."));
  }
}

TEST_F(OddReceipt, OneThatDiesBetweenTwoMessagesFailsTheRun) {
  for (const char* message : {"receipt.componentsAndVersions", "receipt.fixPlanForValidation"}) {
    expectFailedRun(std::string("RECEIPT_DIES=after ") + message, ended("unexpectedly (signal 9)."));
  }
}

TEST_F(OddReceipt, OneThatDiesAfterItsLastAnswerHasAnsweredAndTheRunSucceeds) {
  const auto outcome = install(with("RECEIPT_DIES=after receipt.removeComponents:"));
  EXPECT_EQ(outcome.exitCode, 0) << outcome.standardError;
  EXPECT_EQ(logged(outcome, "Error", ended("unexpectedly (signal 9).")), 1) << outcome.standardError;
  EXPECT_EQ(logged(outcome, "Error", "Unable to shutdown the receipt service."), 1);
  EXPECT_TRUE(root().exists(std::string(kReceipt) + "/Contents/Install/Manifests/Core.plist"));
  EXPECT_TRUE(noEngineIsLeft()) << enginesRunning();
}

TEST_F(OddReceipt, OneThatIsNoLongerNeededAndDiesIsReportedAndTheFinishedInstallStays) {
  const auto outcome = install(with("RECEIPT_DIES=receipt.shutdownService"));
  EXPECT_EQ(outcome.exitCode, 0) << outcome.standardError;
  EXPECT_TRUE(root().exists(std::string(kReceipt) + "/Contents/Install/Manifests/Core.plist"));
  EXPECT_TRUE(noEngineIsLeft()) << enginesRunning();
}

TEST_F(OddReceipt, OneThatAnswersNothingInSuccessCountsAsOneThatKnowsNothing) {
  const auto outcome = install(with("RECEIPT_ANSWERS=nil"));
  // It also says that it removed nothing, without saying that anything went wrong.
  EXPECT_TRUE(loggedBeginning(outcome, "Info", "Adding component Core to upgrade plan"));
  EXPECT_FALSE(logged(outcome, "Notice", "\"installer\" success: YES"));
  EXPECT_FALSE(loggedAnything(outcome, "Error")) << outcome.standardError;
  EXPECT_TRUE(noEngineIsLeft()) << enginesRunning();
}

TEST_F(OddReceipt, OneThatAnswersSomethingElseThanRecordsCountsAsOneThatKnowsNothing) {
  const auto outcome = install(with("RECEIPT_ANSWERS=odd"));
  EXPECT_TRUE(loggedBeginning(outcome, "Info", "Adding component Core to upgrade plan"));
  EXPECT_TRUE(noEngineIsLeft()) << enginesRunning();
}

TEST_F(OddReceipt, OneThatLivesButCannotBeAskedFailsTheRun) {
  const std::string error = "The receipt process " + std::string(kReceiptEngine) + " cannot be reached.";
  for (const char* hidden : {"receipt", "both"}) {
    const auto outcome = install(with(std::string("RECEIPT_HIDES=") + hidden));
    EXPECT_EQ(outcome.exitCode, 1) << hidden << "\n" << outcome.standardError;
    EXPECT_TRUE(logged(outcome, "Error", error)) << hidden << "\n" << outcome.standardError;
    EXPECT_TRUE(noEngineIsLeft()) << enginesRunning();
  }
}

TEST_F(OddReceipt, AnAnswerThatNeedsAStateWhichCannotBeHadFailsTheRun) {
  const auto outcome = install(with("RECEIPT_ANSWERS=nil", "RECEIPT_HIDES=status"));
  EXPECT_EQ(outcome.exitCode, 1) << outcome.standardError;
  EXPECT_EQ(logged(outcome, "Error", "Unable to acquire upgrade plan"), 1) << outcome.standardError;
  EXPECT_TRUE(noEngineIsLeft()) << enginesRunning();
}

TEST_F(OddReceipt, OneThatCannotBeLaunchedFailsTheRun) {
  ASSERT_TRUE(root().shell("chmod 644 '" + std::string(kReceiptEngine) + "'").succeeded());
  const auto outcome = install();
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Failed to launch receipt  at " + std::string(kReceiptEngine) + ". "));
  EXPECT_EQ(logged(outcome, "Error", "Failed to connect with receipt"), 1);
  EXPECT_FALSE(loggedBeginning(outcome, "Error", "Unable to shutdown the receipt service."));
}

TEST_F(OddReceipt, OneThatExitsAtOnceFailsTheRunWithItsExitStatus) {
  root().writeFile(kReceiptEngine, "#!/bin/sh\nexit 7\n", 0755);
  expectFailedRun("A=B", ended("before its services could be reached (exit status 7)."));
}

TEST_F(OddReceipt, WhereNobodyCanHearItsServicesTheyAreFoundByTheirNames) {
  ASSERT_TRUE(root().shell("mount -t tmpfs -o ro,mode=0755 none /var/run/com.corvane.installer/observers").succeeded());
  const auto outcome = install();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.standardError;
  EXPECT_TRUE(loggedBeginning(outcome, "Debug", "Found the service com.corvane.installer.receipt."));
  EXPECT_EQ(enginesRunning(), "");
}

TEST_F(OddReceipt, TheServicesOfAnotherInstallersReceiptAreNotTakenForItsOwn) {
  // The same announcements as this run's receipt makes, from a process that this run did not launch.
  auto other = root().start({kReceiptEngine, "--receipt"});
  const auto outcome = install();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.standardError;
  EXPECT_TRUE(other.isRunning());
}

TEST_F(OddReceipt, AKilledEngineTakesItsReceiptWithIt) {
  for (const char* message :
       {"receipt.componentsAndVersions", "receipt.fixPlanForValidation", "receipt.removeComponents:"}) {
    auto engine = root().start({kEngine, "--install"}, with(std::string("RECEIPT_WAITS=") + message));
    ASSERT_TRUE(engine.waitForStandardError("the receipt waits")) << message << engine.standardErrorSoFar();
    engine.kill(SIGKILL);
    static_cast<void>(engine.wait());
    EXPECT_TRUE(noEngineIsLeft()) << message << enginesRunning();
  }
}

}  // namespace
}  // namespace tests
