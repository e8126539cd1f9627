#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/integration/ReceiptInRoot.h"

namespace {

using support::Outcome;
using support::Snapshot;
using support::SnapshotEntry;

class Receipt : public tests::ReceiptInRoot {};

TEST_F(Receipt, WithoutThePayloadNothingUnderItReachesTheReceipt) {
  const Outcome outcome = writeReceipt();
  EXPECT_EQ(outcome.standardOutput, kSucceeded) << outcome.standardError;
  EXPECT_EQ(pathsInReceipt(),
            (std::vector<std::string>{"", "/Contents", "/Contents/Info.plist", "/Contents/Install",
                                      "/Contents/Install/Manifests", "/Contents/Install/Manifests/Core.plist",
                                      "/Contents/Install/Manifests/Index.plist", "/Contents/Install/Root",
                                      "/Contents/MacOS", "/Contents/MacOS/InstallationDeployer",
                                      "/Contents/MacOS/Installer", "/Contents/Resources"}));
  EXPECT_EQ(root().readFile(kReceipt + "/Contents/MacOS/InstallationDeployer"), "engine");
  EXPECT_FALSE(loggedAnything(outcome, "Error"));
}

TEST_F(Receipt, WithReceiptHasPayloadContentsFalseNothingUnderThePayloadReachesTheReceipt) {
  makeBundle(false);
  EXPECT_EQ(writeReceipt().standardOutput, kSucceeded);
  EXPECT_TRUE(root().exists(kReceipt + "/Contents/Install/Root"));
  EXPECT_FALSE(root().exists(kReceipt + "/Contents/Install/Root/Core"));
}

TEST_F(Receipt, WithReceiptHasPayloadContentsTrueThePayloadIsCopiedToo) {
  makeBundle(true);
  EXPECT_EQ(writeReceipt().standardOutput, kSucceeded);
  EXPECT_EQ(root().readFile(kReceipt + "/Contents/Install/Root/Core/abc"), "payload");
}

TEST_F(Receipt, EveryFileHasMode0644EveryFolderAndBothExecutables0755AllOfRootAndAdminWhateverTheUmask) {
  makeBundle(true);
  support::RunOptions options;
  options.fileCreationMask = 0777;
  EXPECT_EQ(root().run(command("write-receipt"), options).standardOutput, kSucceeded);
  const Snapshot snapshot = root().snapshot(kLocation);
  EXPECT_EQ(snapshot.size(), 16U) << support::listing(snapshot);
  for (const SnapshotEntry& entry : snapshot) {
    const bool executable = entry.type == 'd' || entry.path.find("/Contents/MacOS/") != std::string::npos;
    EXPECT_EQ(entry.mode, executable ? 0755U : 0644U) << entry;
    EXPECT_EQ(entry.user, 0U) << entry;
    EXPECT_EQ(entry.group, 80U) << entry;
  }
}

TEST_F(Receipt, AfterSuccessTheTemporaryFolderIsGone) {
  EXPECT_EQ(writeReceipt().standardOutput, kSucceeded);
  EXPECT_FALSE(root().exists(kTemporary));
  EXPECT_TRUE(root().exists(kReceipt));
}

TEST_F(Receipt, AnOlderReceiptIsReplacedWholeAndNotMerged) {
  makeOldReceipt();
  EXPECT_EQ(writeReceipt().standardOutput, kSucceeded);
  EXPECT_FALSE(root().exists(kReceipt + "/Contents/Install/Manifests/Old.plist"));
  EXPECT_EQ(root().readFile(kReceipt + "/Contents/MacOS/InstallationDeployer"), "engine");
  EXPECT_FALSE(root().exists(kTemporary));
}

TEST_F(Receipt, AReceiptThatIsALinkIsReplacedAndWhatItLeadsToStays) {
  root().writeFile("/Users/keep/file", "kept");
  root().makeDirectory(kFolder);
  root().makeLink(kReceipt, "/Users/keep");
  EXPECT_EQ(writeReceipt().standardOutput, kSucceeded);
  EXPECT_EQ(receipt().front().type, 'd');
  EXPECT_EQ(root().readFile("/Users/keep/file"), "kept");
}

TEST_F(Receipt, ALinkThatLeadsNowhereIsReplacedLikeAnyOldReceipt) {
  root().makeDirectory(kFolder);
  root().makeLink(kReceipt, "/nowhere");
  EXPECT_EQ(writeReceipt().standardOutput, kSucceeded);
  EXPECT_EQ(receipt().front().type, 'd');
}

TEST_F(Receipt, WhatAKilledRunLeftInStagingIsNotMergedIn) {
  root().writeFile(kStaging + "/Contents/Other.plist", "of another bundle");
  root().writeFile(kTemporary + "/Replaced.app/Contents/Info.plist", "of an old receipt");
  EXPECT_EQ(writeReceipt().standardOutput, kSucceeded);
  EXPECT_FALSE(root().exists(kReceipt + "/Contents/Other.plist"));
  EXPECT_FALSE(root().exists(kTemporary));
}

TEST_F(Receipt, WhatAKilledRemovalPutAsideIsSwept) {
  const std::string aside = kLocation + "/.com.corvane.installer.4000000.0123456789abcdef0123456789abcdef";
  root().writeFile(aside + "/Installer.app/Contents/Info.plist", "put aside");
  EXPECT_EQ(writeReceipt().standardOutput, kSucceeded);
  EXPECT_FALSE(root().exists(aside));
}

TEST_F(Receipt, RunningFromTheReceiptLocationLeavesTheReceiptUntouched) {
  makeOldReceipt();
  const Snapshot before = root().snapshot(kLocation);
  const Outcome outcome = root().run({kDriver, "write-receipt", kReceipt, kProduct, "Core"});
  EXPECT_EQ(outcome.standardOutput, kSucceeded);
  EXPECT_EQ(logged(outcome, "Debug", "Receipt running as installer. WriteReceipt will not update the receipt."), 1);
  EXPECT_EQ(root().snapshot(kLocation), before);
}

TEST_F(Receipt, ABundleThatAFailedRunLeftInStagingCanWriteItsOwnReceipt) {
  ASSERT_TRUE(root()
                  .shell("mkdir -p '" + kTemporary + "' && mv '" + std::string(kBundle) + "' '" + kStaging + "'")
                  .succeeded());
  const Outcome outcome = root().run({kDriver, "write-receipt", kStaging, kProduct, "Core"});
  EXPECT_EQ(outcome.standardOutput, kSucceeded) << outcome.standardError;
  EXPECT_EQ(root().readFile(kReceipt + "/Contents/MacOS/InstallationDeployer"), "engine");
  EXPECT_FALSE(root().exists(kTemporary));
}

TEST_F(Receipt, ABundleInStagingIsRecognisedHoweverItsPathIsWritten) {
  ASSERT_TRUE(root()
                  .shell("mkdir -p '" + kTemporary + "' && mv '" + std::string(kBundle) + "' '" + kStaging + "'")
                  .succeeded());
  const Outcome outcome =
      root().shell("cd '" + kStaging + "/Contents/MacOS' && " + kDriver + " write-receipt ../.. " + kProduct + " Core");
  EXPECT_EQ(outcome.standardOutput, kSucceeded) << outcome.standardError;
  EXPECT_EQ(root().readFile(kReceipt + "/Contents/MacOS/InstallationDeployer"), "engine");
}

TEST_F(Receipt, AReceiptThatAKilledRunMovedAsideIsNotRemovedWhileItRuns) {
  const std::string aside = kTemporary + "/Replaced.app";
  ASSERT_TRUE(
      root().shell("mkdir -p '" + kTemporary + "' && mv '" + std::string(kBundle) + "' '" + aside + "'").succeeded());
  const Outcome outcome = root().run({kDriver, "write-receipt", aside, kProduct, "Core"});
  EXPECT_EQ(outcome.standardOutput, kSucceeded) << outcome.standardError;
  EXPECT_EQ(root().readFile(kReceipt + "/Contents/MacOS/InstallationDeployer"), "engine");
}

TEST_F(Receipt, WhatWasStagedBeforeIsNotMergedInWhileTheReceiptThatWasMovedAsideRuns) {
  const std::string aside = kTemporary + "/Replaced.app";
  ASSERT_TRUE(
      root().shell("mkdir -p '" + kTemporary + "' && mv '" + std::string(kBundle) + "' '" + aside + "'").succeeded());
  root().writeFile(kStaging + "/Contents/Other.plist", "of another bundle");
  const Outcome outcome = root().run({kDriver, "write-receipt", aside, kProduct, "Core"});
  EXPECT_EQ(outcome.standardOutput, kSucceeded) << outcome.standardError;
  EXPECT_EQ(root().readFile(kReceipt + "/Contents/MacOS/InstallationDeployer"), "engine");
  EXPECT_FALSE(root().exists(kReceipt + "/Contents/Other.plist"));
}

TEST_F(Receipt, AFileOrALinkInTheWayOfTheStagingFolderFailsTheStepAndStays) {
  root().writeFile("/Users/elsewhere/Installer.app/kept", "kept");
  for (const bool isLink : {false, true}) {
    SCOPED_TRACE(isLink ? "link" : "file");
    makeOldReceipt();
    if (isLink) {
      ASSERT_TRUE(root().shell("rm '" + kTemporary + "'").succeeded());
      root().makeLink(kTemporary, "/Users/elsewhere");
    } else {
      root().writeFile(kTemporary, "in the way");
    }
    const Snapshot before = root().snapshot(kFolder);
    const Outcome outcome = writeReceipt();
    EXPECT_EQ(outcome.standardOutput, kFailed);
    EXPECT_TRUE(loggedBeginning(outcome, "Error", "Error creating receipt directory, error: Error Domain="))
        << outcome.standardError;
    EXPECT_EQ(root().snapshot(kFolder), before);
    EXPECT_EQ(root().readFile("/Users/elsewhere/Installer.app/kept"), "kept");
  }
}

class ReceiptOverAMount : public Receipt {
 protected:
  [[nodiscard]] bool needsMounts() const override { return true; }
  void mountAt(const std::string& folder) {
    root().makeDirectory(folder);
    ASSERT_TRUE(root().shell("mount -t tmpfs none '" + folder + "'").succeeded());
  }
};

TEST_F(ReceiptOverAMount, WhatCannotBeRemovedBesideTheStagedReceiptIsLoggedAndTheStepSucceeds) {
  mountAt(kTemporary + "/mounted");
  root().writeFile(kStaging + "/Contents/Other.plist", "of another bundle");
  const Outcome outcome = writeReceipt();
  EXPECT_EQ(outcome.standardOutput, kSucceeded);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Failed to remove temp directory " + kStaging + ". Error Domain="))
      << outcome.standardError;
  EXPECT_EQ(root().readFile(kReceipt + "/Contents/MacOS/InstallationDeployer"), "engine");
  EXPECT_FALSE(root().exists(kReceipt + "/Contents/Other.plist"));
}

TEST_F(ReceiptOverAMount, WhatCannotBeRemovedInPlaceOfTheStagedReceiptFailsTheStep) {
  mountAt(kStaging + "/Contents");
  const Outcome outcome = writeReceipt();
  EXPECT_EQ(outcome.standardOutput, kFailed);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Error creating receipt directory, error: Error Domain="))
      << outcome.standardError;
  EXPECT_FALSE(root().exists(kReceipt));
}

TEST_F(Receipt, AnEmptyPlanLeavesTheReceiptLocationUntouched) {
  makeOldReceipt();
  root().writeFile(kTemporary + "/file", "x");
  const Snapshot before = root().snapshot(kLocation);
  EXPECT_EQ(writeReceipt({}).standardOutput, kSucceeded);
  EXPECT_EQ(root().snapshot(kLocation), before);
}

TEST_F(Receipt, AnEarlierFailureOnlyRemovesTheTemporaryFolderOfTheReceiptLocation) {
  makeOldReceipt();
  root().writeFile(kLocation + "/temp/folder/file", "x");
  const Snapshot before = root().snapshot(kFolder);
  const Outcome outcome = writeReceipt({"--failed", "Core"});
  EXPECT_EQ(outcome.standardOutput, "success=0 state=0 published=\n");
  EXPECT_FALSE(root().exists(kLocation + "/temp"));
  EXPECT_EQ(root().snapshot(kFolder), before);
  EXPECT_FALSE(loggedAnything(outcome, "Error"));
}

TEST_F(Receipt, AnEarlierFailureWithNothingToCleanUpIsSilent) {
  const Outcome outcome = writeReceipt({"--failed", "Core"});
  EXPECT_EQ(outcome.standardOutput, "success=0 state=0 published=\n");
  EXPECT_FALSE(loggedAnything(outcome, "Error"));
  EXPECT_FALSE(root().exists(kLocation));
}

TEST_F(Receipt, AFileInPlaceOfTheReceiptLocationLeavesNothingToCleanUp) {
  root().writeFile(kLocation, "a file");
  const Outcome outcome = writeReceipt({"--failed", "Core"});
  EXPECT_EQ(outcome.standardOutput, "success=0 state=0 published=\n");
  EXPECT_FALSE(loggedAnything(outcome, "Error")) << outcome.standardError;
}

TEST_F(Receipt, ACleanUpThatFailsIsLogged) {
  root().writeFile(kLocation + "/temp/folder/file", "x");
  ASSERT_TRUE(root()
                  .shell("chown 501 '" + kLocation + "/temp/folder' && chmod 500 '" + kLocation + "/temp/folder'")
                  .succeeded());
  const Outcome outcome = writeReceiptWithoutOverride(std::vector<std::string>{"--failed", "Core"});
  EXPECT_EQ(outcome.standardOutput, "success=0 state=0 published=\n");
  EXPECT_TRUE(
      loggedBeginning(outcome, "Error", "Failed to remove temp directory " + kLocation + "/temp. Error Domain="))
      << outcome.standardError;
}

TEST_F(Receipt, AStagingFolderThatCannotBeCreatedFailsTheStep) {
  root().writeFile(kFolder, "a file where the product's folder should be");
  const Outcome outcome = writeReceipt();
  EXPECT_EQ(outcome.standardOutput, kFailed);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Error creating receipt directory, error: Error Domain="))
      << outcome.standardError;
}

class IncompleteReceipt : public Receipt {
 protected:
  void expectFailureWithout(const std::string& executable) {
    makeOldReceipt();
    const Snapshot before = receipt();
    ASSERT_TRUE(root().shell("rm '" + inBundle(executable) + "'").succeeded());
    const Outcome outcome = writeReceipt();
    EXPECT_EQ(outcome.standardOutput, kFailed);
    EXPECT_TRUE(loggedBeginning(outcome, "Error",
                                "Receipt incomplete. Unable to set execute attributes on file: " + kStaging + "/" +
                                    executable + "\nError Domain="))
        << outcome.standardError;
    EXPECT_EQ(receipt(), before);
  }
};

TEST_F(IncompleteReceipt, AMissingFrontEndFailsTheStepAndLeavesTheOldReceipt) {
  expectFailureWithout("Contents/MacOS/Installer");
}

TEST_F(IncompleteReceipt, AMissingEngineFailsTheStepAndLeavesTheOldReceipt) {
  expectFailureWithout("Contents/MacOS/InstallationDeployer");
}

TEST_F(Receipt, AFileThatCannotBeCopiedSetsTheStateAndTheReceiptIsWrittenAllTheSame) {
  ASSERT_TRUE(root().shell("mkfifo '" + inBundle("Contents/Resources/pipe") + "'").succeeded());
  const Outcome outcome = writeReceipt();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=1 published=\n");
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "error: Error Domain=")) << outcome.standardError;
  EXPECT_TRUE(root().exists(kReceipt + "/Contents/MacOS/Installer"));
  EXPECT_FALSE(root().exists(kReceipt + "/Contents/Resources/pipe"));
}

/// What is done to the staged receipt, and the item that is missing for it.
struct Gap {
  const char* damage;
  const char* item;
};

class ReceiptWithGap : public Receipt, public ::testing::WithParamInterface<Gap> {};

TEST_P(ReceiptWithGap, DoesNotTakeTheOldOnesPlace) {
  makeBundle(true);
  makeOldReceipt();
  const Snapshot before = root().snapshot(kFolder);
  const Outcome outcome = writeReceipt(
      {"--before-publishing", "cd '" + kStaging + "/Contents' && " + std::string(GetParam().damage), "Core"});
  EXPECT_EQ(outcome.standardOutput, kFailed) << outcome.standardError;
  EXPECT_TRUE(loggedBeginning(
      outcome, "Error",
      "Receipt incomplete. It does not hold the bundle's Contents/" + std::string(GetParam().item) + ": "))
      << outcome.standardError;
  EXPECT_EQ(root().snapshot(kFolder), before) << "the old one stays, and what was staged goes";
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, ReceiptWithGap,
    ::testing::Values(Gap{"rm Install/Manifests/Index.plist", "Install/Manifests/Index.plist"},
                      Gap{"printf x >> Install/Manifests/Index.plist", "Install/Manifests/Index.plist"},
                      Gap{"rm Install/Manifests/Core.plist", "Install/Manifests/Core.plist"},
                      Gap{"rm Install/Manifests/Core.plist && mkdir Install/Manifests/Core.plist",
                          "Install/Manifests/Core.plist"},
                      Gap{"printf Engine > MacOS/InstallationDeployer", "MacOS/InstallationDeployer"},
                      Gap{"rm MacOS/Installer", "MacOS/Installer"},
                      Gap{"rm Install/Root/Core/abc", "Install/Root/Core/abc"},
                      Gap{"printf x > Install/Root/Core/abc", "Install/Root/Core/abc"}));

TEST_F(Receipt, OneForWhichSomethingCouldNotBeCopiedThatLaterRunsNeedDoesNotTakeTheOldOnesPlace) {
  makeBundle(true);
  makeOldReceipt();
  const Snapshot before = root().snapshot(kFolder);
  const std::string folder = std::string(kBundle) + "/Contents/Install/Root/Other";
  ASSERT_TRUE(root().shell("mkdir '" + folder + "' && mkfifo '" + folder + "/pipe'").succeeded());
  const Outcome outcome = writeReceipt();
  EXPECT_EQ(outcome.standardOutput, kFailed) << outcome.standardError;
  EXPECT_TRUE(loggedBeginning(outcome, "Error",
                              "Receipt incomplete. It does not hold the bundle's Contents/Install/Root/Other/pipe: "));
  EXPECT_EQ(root().snapshot(kFolder), before);
}

TEST_F(Receipt, OneThatIsNotWholeLeavesNoFolderOfAFirstInstallation) {
  const Outcome outcome =
      writeReceipt({"--before-publishing", "rm '" + kStaging + "/Contents/Install/Manifests/Core.plist'", "Core"});
  EXPECT_EQ(outcome.standardOutput, kFailed) << outcome.standardError;
  EXPECT_FALSE(root().exists(kFolder));
}

TEST_F(Receipt, ABundleThatFailsToBeAReceiptWhereItWasStagedStays) {
  ASSERT_EQ(writeReceipt({"--before-publishing", "false", "Core"}).standardOutput, kSucceeded);
  const std::string index = kStaging + "/Contents/Install/Manifests/Index.plist";
  const Outcome outcome = root().run({kDriver, "write-receipt", kStaging, kProduct, "--before-publishing",
                                      "mkfifo /pipe && mv /pipe '" + index + "'", "Core"});
  EXPECT_EQ(outcome.standardOutput, kFailed) << outcome.standardError;
  EXPECT_TRUE(root().exists(kStaging + "/Contents/MacOS/Installer")) << "the only copy that there is";
}

TEST_F(Receipt, ManifestsThatOnlyTheBundleLacksAreNotMissed) {
  writeIndex({"Core", "Absent"});
  EXPECT_EQ(writeReceipt().standardOutput, kSucceeded);
}

TEST_F(Receipt, ContentsThatAreNotValidStayInStagingAndTheStepSucceeds) {
  makeOldReceipt();
  const Snapshot before = receipt();
  EXPECT_EQ(writeReceipt({"--before-publishing", "exit 1", "Core"}).standardOutput, kSucceeded);
  EXPECT_EQ(receipt(), before);
  EXPECT_TRUE(root().exists(kStaging + "/Contents/MacOS/Installer"));
}

TEST_F(Receipt, AnOldReceiptThatCannotBeMovedAwayFailsTheStepAndStays) {
  makeOldReceipt();
  ASSERT_TRUE(root().shell("chown 501 '" + kReceipt + "' && chmod 555 '" + kReceipt + "'").succeeded());
  const Snapshot before = receipt();
  const Outcome outcome = writeReceiptWithoutOverride();
  EXPECT_EQ(outcome.standardOutput, kFailed);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Failed to remove existing receipt " + kReceipt + ". Error Domain="))
      << outcome.standardError;
  EXPECT_EQ(receipt(), before);
}

TEST_F(Receipt, AnOldReceiptThatCannotBeRemovedFailsTheStepAndTheNewOneIsInPlace) {
  makeOldReceipt();
  const std::string stuck = kReceipt + "/Contents/Install/Manifests";
  ASSERT_TRUE(root().shell("chown 501 '" + stuck + "' && chmod 555 '" + stuck + "'").succeeded());
  const Outcome outcome = writeReceiptWithoutOverride();
  EXPECT_EQ(outcome.standardOutput, kFailed);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Failed to remove existing receipt " + kReceipt + ". Error Domain="))
      << outcome.standardError;
  EXPECT_TRUE(loggedBeginning(outcome, "Error",
                              "What is left of the receipt lies at " + kLocation + "/.com.corvane.installer."))
      << outcome.standardError;
  EXPECT_EQ(root().readFile(kReceipt + "/Contents/MacOS/InstallationDeployer"), "engine");
  EXPECT_FALSE(root().exists(kReceipt + "/Contents/Install/Manifests/Old.plist"));
}

TEST_F(Receipt, AReceiptThatCannotBeMovedIntoPlaceFailsTheStepAndStaysInStaging) {
  const Outcome outcome = writeReceiptWithoutOverride("chmod 555 '" + kFolder + "' && chown 501 '" + kFolder + "'");
  EXPECT_EQ(outcome.standardOutput, kFailed);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Failed to move receipt to " + kReceipt + ". Error Domain="))
      << outcome.standardError;
  EXPECT_FALSE(root().exists(kReceipt));
  EXPECT_TRUE(root().exists(kStaging + "/Contents/MacOS/Installer"));
}

TEST_F(Receipt, ATemporaryFolderThatCannotBeRemovedIsLoggedWithTheStagingPathButIsNoFailure) {
  const std::string stuck = kTemporary + "/stuck";
  const Outcome outcome = writeReceiptWithoutOverride("mkdir -p '" + stuck + "/folder' && chmod 555 '" + stuck +
                                                      "' && chown 501 '" + stuck + "'");
  EXPECT_EQ(outcome.standardOutput, kSucceeded);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Failed to remove temp directory " + kStaging + ". Error Domain="))
      << outcome.standardError;
  EXPECT_TRUE(root().exists(kReceipt + "/Contents/MacOS/Installer"));
}

TEST_F(Receipt, WhatCannotBePutOnDiskIsNotPublished) {
  makeOldReceipt();
  const Snapshot before = receipt();
  const Outcome outcome = writeReceiptWithoutOverride("chmod 311 '" + kFolder + "' && chown 501 '" + kFolder + "'");
  EXPECT_EQ(outcome.standardOutput, kFailed);
  EXPECT_TRUE(
      loggedBeginning(outcome, "Error", "Failed to put what was written on disk at " + kFolder + ". Error Domain="))
      << outcome.standardError;
  EXPECT_EQ(receipt(), before);
}

TEST_F(Receipt, ASecondEngineWaitsUntilTheFirstHasItsReceiptInPlace) {
  if (!root().hasProcesses()) {
    GTEST_SKIP() << root().whyNoMounts();
  }
  const std::string second = std::string(kDriver) + " write-receipt '" + kBundle + "' " + kProduct +
                             " --before-publishing 'touch /second' Core";
  root().writeFile("/second.sh", second + "\n", 0755);
  // The first one holds still until the second one waits for it, or has staged a receipt of its own meanwhile.
  const Outcome first =
      writeReceipt({"--before-publishing",
                    "sh /second.sh >/second.out 2>/dev/null & "
                    "until [ -e /second ] || grep -q -e '-> FLOCK' /proc/locks; do sleep 0.02; done; [ ! -e /second ]",
                    "Core"});
  EXPECT_EQ(first.standardOutput, "success=1 state=0 published=\n") << first.standardError;
  EXPECT_TRUE(root().exists(kReceipt + "/Contents/MacOS/InstallationDeployer"));
  ASSERT_TRUE(root().shell("until grep -q success /second.out; do sleep 0.02; done").succeeded());
  EXPECT_EQ(root().readFile("/second.out"), "success=1 state=0 published=\n");
  EXPECT_TRUE(root().exists("/second"));
  EXPECT_TRUE(root().exists(kReceipt + "/Contents/MacOS/InstallationDeployer"));
}

}  // namespace
