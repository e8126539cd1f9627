#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "tests/integration/TwoRuns.h"

namespace tests {
namespace {

using support::Outcome;

TEST_F(TwoRuns, OfOneProductGoOneAfterTheOtherAndTheSecondLooksAtTheMachineAfresh) {
  auto first = startAndHold({kEngine, "--install"});
  auto second = start({kEngine, "--install"});
  waitUntilItWaits(second, first);
  EXPECT_EQ(second.standardErrorSoFar().find("Fresh install"), std::string::npos);
  letGoOn();
  const Outcome firstOutcome = first.wait();
  const Outcome secondOutcome = second.wait();
  EXPECT_EQ(firstOutcome.exitCode, 0) << firstOutcome.description();
  EXPECT_EQ(secondOutcome.exitCode, 0) << secondOutcome.description();
  EXPECT_EQ(logged(secondOutcome, "Notice", noticeOfWaitFor(first)), 1);
  EXPECT_EQ(logged(firstOutcome, "Notice", "Fresh install of the \"Guard\" product."), 1);
  EXPECT_EQ(logged(secondOutcome, "Notice", "Upgrading the \"Guard\" product"), 1);
  EXPECT_FALSE(loggedAnything(secondOutcome, "Error")) << secondOutcome.standardError;
  expectVersion("1.0");
}

TEST_F(TwoRuns, ARunByItselfSaysNothingOfWaiting) {
  const Outcome outcome = install();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_FALSE(loggedBeginning(outcome, "Notice", "Waiting for"));
}

TEST_F(TwoRuns, AnotherVersionUpgradesWhatTheFirstInstalled) {
  auto first = startAndHold({kEngine, "--install"});
  auto second = start({kNewEngine, "--install"});
  waitUntilItWaits(second, first);
  letGoOn();
  EXPECT_EQ(first.wait().exitCode, 0);
  EXPECT_EQ(second.wait().exitCode, 0);
  expectVersion("1.1");
}

TEST_F(TwoRuns, ARemovalRemovesTheVersionThatItFindsAfterItsWait) {
  installOldVersion();
  auto upgrade = startAndHold({kNewEngine, "--install"});
  auto removal = start({kReceiptEngine, "--remove"});
  waitUntilItWaits(removal, upgrade);
  letGoOn();
  EXPECT_EQ(upgrade.wait().exitCode, 0);
  const Outcome outcome = removal.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_FALSE(loggedAnything(outcome, "Error")) << outcome.standardError;
  expectNothing();
}

TEST_F(TwoRuns, ARemovalThatFindsTheProductGoneAfterItsWaitHasNothingToDo) {
  installOldVersion();
  auto first = startAndHold({kReceiptEngine, "--remove"});
  auto second = start({kReceiptEngine, "--remove"});
  waitUntilItWaits(second, first);
  letGoOn();
  EXPECT_EQ(first.wait().exitCode, 0);
  const Outcome outcome = second.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(logged(outcome, "Notice", "The product \"Guard\" was removed by another run. Nothing is left to remove."),
            1);
  EXPECT_FALSE(loggedAnything(outcome, "Error")) << outcome.standardError;
  expectNothing();
}

TEST_F(TwoRuns, ARemovalWhoseReceiptIsGoneBeforeItLooksHasNothingToDo) {
  // As when another one removes it after the start of the program: that runs from a file without a name.
  for (const std::string options : {"--remove", "--remove --product_name Guard", "--ui --remove"}) {
    root().copyIn(CORVANE_ENGINE, "/opt/engine");
    auto removal =
        start({"/bin/bash", "-c", "exec 9</opt/engine; rm /opt/engine; exec -a \"$0\" /proc/self/fd/9 " + options,
               kReceiptEngine});
    if (options.starts_with("--ui")) {
      waitForEndOfWork(removal);
      EXPECT_EQ(watch(removal, {"state", "shutdown"}), "state 0\nshutdown sent\n");
    }
    const Outcome outcome = removal.wait();
    EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
    EXPECT_EQ(logged(outcome, "Notice", "The product \"Guard\" was removed by another run. Nothing is left to remove."),
              1);
    EXPECT_FALSE(loggedAnything(outcome, "Error")) << outcome.standardError;
  }
}

TEST_F(TwoRuns, ARemovalThatIsNotStartedFromAReceiptFindsNothingGone) {
  support::RunOptions asReceipt;
  asReceipt.argumentZero = kReceiptEngine;
  const Outcome outcome = root().run({kEngine, "--remove"}, asReceipt);
  EXPECT_FALSE(loggedBeginning(outcome, "Notice", "The product \"Guard\" was removed by another run."));
  EXPECT_TRUE(loggedBeginning(outcome, "Warning", "The manifest index is missing or damaged: "))
      << outcome.standardError;
}

TEST_F(TwoRuns, AnInstallThatWaitsForARemovalInstallsEverything) {
  installOldVersion();
  auto removal = startAndHold({kReceiptEngine, "--remove"});
  auto second = start({kNewEngine, "--install"});
  waitUntilItWaits(second, removal);
  letGoOn();
  EXPECT_EQ(removal.wait().exitCode, 0);
  const Outcome outcome = second.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(logged(outcome, "Notice", "Fresh install of the \"Guard\" product."), 1);
  expectVersion("1.1");
}

TEST_F(TwoRuns, AWaitEndsWithTheOtherProcessHoweverThatEnds) {
  installOldVersion();
  auto first = startAndHold({kNewEngine, "--install"});
  auto second = start({kNewEngine, "--install"});
  waitUntilItWaits(second, first);
  first.kill(SIGKILL);
  const Outcome outcome = second.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  expectVersion("1.1");
  letGoOn();  // the first one's launchctl
}

TEST_F(TwoRuns, AWatchedRunIsServedWhileItWaitsAndCanBeCancelled) {
  auto first = startAndHold({kEngine, "--install"});
  auto second = start({kNewEngine, "--ui", "--install"});
  waitUntilItWaits(second, first);
  EXPECT_EQ(watch(second, {"state", "progress"}), "state 11\nprogress 0\n");
  EXPECT_EQ(watch(second, {"cancel"}), "cancel sent\n");
  waitForEndOfWork(second);
  EXPECT_EQ(watch(second, {"state", "shutdown"}), "state 21\nshutdown sent\n");
  const Outcome outcome = second.wait();
  EXPECT_EQ(outcome.exitCode, 21) << outcome.description();
  EXPECT_FALSE(loggedBeginning(outcome, "Notice", "Fresh install"));
  EXPECT_TRUE(first.isRunning());
  letGoOn();
  EXPECT_EQ(first.wait().exitCode, 0);
  expectVersion("1.0");
}

TEST_F(TwoRuns, ARunThatOnlyWaitsForItsWatchersKeepsNobodyWaiting) {
  auto first = start({kEngine, "--ui", "--install"});
  waitForEndOfWork(first);
  const Outcome outcome = root().run({kNewEngine, "--install"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_FALSE(loggedBeginning(outcome, "Notice", "Waiting for"));
  EXPECT_EQ(watch(first, {"shutdown"}), "shutdown sent\n");
  EXPECT_EQ(first.wait().exitCode, 0);
  expectVersion("1.1");
}

TEST_F(TwoRuns, OfDifferentProductsGoSideBySide) {
  BundleMaker other(CORVANE_ENGINE);
  other.stageFile("Extra", "/opt/extra/file", "extra");
  other.addComponent("Extra", "1.0", "Extra");
  root().copyIn(other.path(), "/Volumes/Extra/Installer.app");
  auto first = startAndHold({kEngine, "--install"});
  const Outcome outcome = root().run({"/Volumes/Extra/Installer.app/Contents/MacOS/InstallationDeployer", "--install"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_FALSE(loggedBeginning(outcome, "Notice", "Waiting for"));
  EXPECT_TRUE(first.isRunning());
  letGoOn();
  EXPECT_EQ(first.wait().exitCode, 0);
  EXPECT_TRUE(root().exists("/opt/extra/file"));
  expectVersion("1.0");
}

TEST_F(TwoRuns, AnInstallThatMayReplaceAnotherProductWaitsForThatOne) {
  BundleMaker other(CORVANE_ENGINE);
  other.stageFile("Extra", "/opt/extra/file", "extra");
  other.addComponent("Extra", "1.0", "Successor");
  const PropertyList index = other.readManifest("Index");
  const PropertyList product = index["Products"]["Successor"].with(
      "CrossGrades", array({dictionary({{"ProductName", kProduct}, {"AllowCrossGrades", true}})}));
  other.writeManifest("Index", index.with("Products", index["Products"].with("Successor", product)));
  root().copyIn(other.path(), "/Volumes/Extra/Installer.app");
  auto first = startAndHold({kEngine, "--install"});
  auto second = start({"/Volumes/Extra/Installer.app/Contents/MacOS/InstallationDeployer", "--install"});
  waitUntilItWaits(second, first);
  letGoOn();
  EXPECT_EQ(first.wait().exitCode, 0);
  const Outcome outcome = second.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_TRUE(
      loggedBeginning(outcome, "Notice", "Installing the \"Successor\" product. Detected the \"Guard\" product."))
      << outcome.standardError;
}

TEST_F(TwoRuns, AProductThatWasDetectedIsDetectedAgainAfterTheWait) {
  BundleMaker several(CORVANE_ENGINE);
  makeVersion(several, "1.1", "/opt/guard/new");
  several.stageFile("Extra", "/opt/extra/file", "extra");
  several.addComponent("Extra", "1.0", "Extra");
  several.writeManifest(
      "Index", several.readManifest("Index").with(
                   "ProductDetectionList",
                   array({dictionary({{"ProductName", kProduct}, {"ProductDetectionPaths", array({"/nowhere"})}}),
                          dictionary({{"ProductName", "Extra"}, {"ProductDetectionPaths", array({"/opt"})}})})));
  root().copyIn(several.path(), "/Volumes/Several/Installer.app");
  installOldVersion();
  auto removal = startAndHold({kReceiptEngine, "--remove"});
  auto second = start({"/Volumes/Several/Installer.app/Contents/MacOS/InstallationDeployer", "--install"});
  waitUntilItWaits(second, removal);
  letGoOn();
  EXPECT_EQ(removal.wait().exitCode, 0);
  const Outcome outcome = second.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(logged(outcome, "Notice", "Installing Guard"), 1);
  EXPECT_EQ(logged(outcome, "Notice", "Installing Extra"), 1);
  EXPECT_TRUE(root().exists("/opt/extra/file"));
  EXPECT_FALSE(root().exists("/opt/guard"));
}

TEST_F(TwoRuns, OneThatTheOtherStartedForTheSameProductDoesNotWaitForIt) {
  const PropertyList index = bundle().readManifest("Index");
  const auto external = dictionary(
      {{"InstallPhaseType", "ExternalInstallationDeployer"}, {"BundlePath", kNewBundle}, {"ProductName", kProduct}});
  const PropertyList product = index["Products"][kProduct].with(
      "ListOfInstallPhases", index["Products"][kProduct]["ListOfInstallPhases"].appending(external));
  bundle().writeManifest("Index", index.with("Products", index["Products"].with(kProduct, product)));
  deliverBundle();
  const Outcome outcome = install();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_FALSE(loggedBeginning(outcome, "Notice", "Waiting for"));
  EXPECT_TRUE(loggedBeginning(outcome, "Debug", "Process ")) << outcome.standardError;
  EXPECT_TRUE(root().exists("/opt/guard/new"));
}

TEST_F(TwoRuns, AReceiptThatOnlyLooksNeverWaits) {
  installOldVersion();
  auto upgrade = startAndHold({kNewEngine, "--install"});
  auto receipt = start({kReceiptEngine, "--receipt"});
  EXPECT_TRUE(receipt.waitForStandardError("posting com.corvane.installer.deployer.started"));
  EXPECT_TRUE(receipt.waitForStandardError("Running as receipt for product Guard")) << receipt.standardErrorSoFar();
  EXPECT_EQ(receipt.standardErrorSoFar().find("Waiting for"), std::string::npos);
  letGoOn();
  EXPECT_EQ(upgrade.wait().exitCode, 0);
}

TEST_F(TwoRuns, WithoutTheLockNothingIsChanged) {
  ASSERT_TRUE(root().shell("mkdir -p /var/run/com.corvane.installer/.product.Guard").succeeded());
  const Outcome outcome = install();
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_EQ(logged(outcome, "Error", "Unable to lock /var/run/com.corvane.installer/.product.Guard. Is a directory"), 1)
      << outcome.standardError;
  expectNothing();
}

TEST_F(TwoRuns, WithoutTheLockOfTheReceiptsNoReceiptIsExchangedNorRemoved) {
  installOldVersion();
  const support::Snapshot before = root().snapshot(kReceipt);
  ASSERT_TRUE(
      root()
          .shell("rm /var/run/com.corvane.installer/.receipts && mkdir /var/run/com.corvane.installer/.receipts")
          .succeeded());
  const std::string error = "Unable to lock /var/run/com.corvane.installer/.receipts. Is a directory";
  const Outcome upgrade = root().run({kNewEngine, "--install"});
  EXPECT_EQ(upgrade.exitCode, 1) << upgrade.description();
  EXPECT_EQ(logged(upgrade, "Error", error), 1);
  EXPECT_EQ(root().snapshot(kReceipt), before);
  const Outcome removal = root().run({kReceiptEngine, "--remove"});
  EXPECT_EQ(removal.exitCode, 1) << removal.description();
  EXPECT_EQ(logged(removal, "Error", error), 1);
  EXPECT_EQ(root().snapshot(kReceipt), before);
}

}  // namespace
}  // namespace tests
