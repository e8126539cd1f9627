#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "InstallationDeployer/RestrictedPaths.h"
#include "tests/integration/StepInRoot.h"
#include "tests/support/PropertyLists.h"

namespace {

using support::Outcome;
using support::Snapshot;

const std::string kFolder = "/Library/Guard";
const std::string kOutside = "/Users/outside";
const std::string kRemoved = "success=1 state=20 published=20\n";
const std::string kFailed = "success=0 state=1 published=20\n";

/// Items on disk that the manifest of the component Core lists.
class InstalledFiles : public tests::StepInRoot {
 protected:
  using PropertyList = foundation::PropertyList;

  static PropertyList file(const std::string& path) { return entry(path, attributes(0644)); }
  static PropertyList wholeDirectory(const std::string& path) {
    return directory(path, {{std::string(deployer::kManifestRemoveDirectoryAndContents), true}});
  }
  void describe(Entries entries) { writeComponent("Core", manifestOf(std::move(entries))); }
  Outcome remove(Entries entries, const std::vector<std::string>& more = {"Core"}) {
    describe(std::move(entries));
    return root().run(command("remove", more));
  }
  Outcome validate(Entries entries) {
    describe(std::move(entries));
    return root().run(command("validate"));
  }
  /// The step as a root that has to obey the permissions of folders.
  Outcome removeWithoutOverride(Entries entries) {
    describe(std::move(entries));
    const std::string setpriv = "/usr/bin/setpriv";
    if (!root().exists(setpriv)) {
      root().copyIn(setpriv, setpriv);
    }
    EXPECT_TRUE(root().shell("chmod -R a+rX '" + std::string(kBundle) + "'").succeeded());
    std::vector<std::string> arguments{setpriv, "--bounding-set=-dac_override,-dac_read_search", "--"};
    const auto driver = command("remove");
    arguments.insert(arguments.end(), driver.begin(), driver.end());
    return root().run(arguments);
  }
  /// What the shell command is needed for is not possible on every machine; then the test cannot show anything.
  bool prepares(const std::string& shellCommand) { return root().shell(shellCommand).succeeded(); }

  static std::string notEmpty(const std::string& directory) {
    return "Did not remove directory, not empty. Directory: " + directory;
  }
};

// --- Validation

TEST_F(InstalledFiles, AFileOfTheRightOwnerPassesWithAnotherGroupAndOtherPermissions) {
  root().writeFile(kFolder + "/file", "x", 0600, 501, 20);
  const Outcome outcome = validate({entry(kFolder + "/file", attributes(0644, 501, 0))});
  EXPECT_EQ(outcome.standardOutput, "success=1 state=16 published=16\nplan=()\n") << outcome.standardError;
}

TEST_F(InstalledFiles, AFileOfAnotherOwnerGroupAndModeNeedsRepair) {
  root().writeFile(kFolder + "/file", "x", 0600, 501, 20);
  const Outcome outcome = validate({file(kFolder + "/file")});
  EXPECT_EQ(outcome.standardOutput, "success=0 state=16 published=16\nplan=(Core)\n") << outcome.standardError;
  EXPECT_TRUE(loggedBeginning(outcome, "Info",
                              "Adding Core component to fixPlan because file attributes different for " + kFolder +
                                  "/file\n\tfile attributes: {"))
      << outcome.standardError;
}

// --- Removal

TEST_F(InstalledFiles, RemovalLeavesTheTreeAsItWasBeforeThem) {
  root().writeFile("/Library/Other/file", "x", 0600, 501, 20);
  const Snapshot before = root().snapshot("/Library");
  root().makeDirectory(kFolder, 0700, 501, 20);
  root().makeDirectory(kFolder + "/sub", 0555);
  root().writeFile(kFolder + "/sub/file", "x", 0, 501, 20);
  root().makeLink(kFolder + "/sub/link", "/Library/Other");
  const Outcome outcome = remove({directory(kFolder), directory(kFolder + "/sub"), file(kFolder + "/sub/file"),
                                  link(kFolder + "/sub/link", "/Library/Other")});
  EXPECT_EQ(outcome.standardOutput, kRemoved) << outcome.standardError;
  EXPECT_EQ(root().snapshot("/Library"), before);
}

TEST_F(InstalledFiles, EachOfTheThirtyEightRestrictedPathsEndsTheRemoval) {
  const auto& restricted = deployer::restrictedPaths();
  ASSERT_EQ(restricted.size(), 38U);
  root().writeFile("/Library/Caches/file", "x");
  const Snapshot before = root().snapshot("/Library");
  for (const std::string& path : restricted) {
    const Outcome outcome = remove({file("/Library/Caches/file"), wholeDirectory(path)});
    EXPECT_EQ(outcome.standardOutput, kFailed) << path;
    EXPECT_EQ(logged(outcome, "Error", "Attempted to remove path on restricted list. Path: " + path), 1);
  }
  EXPECT_EQ(root().snapshot("/Library"), before);
}

TEST_F(InstalledFiles, ARestrictedPathWithASlashBehindItIsNotRestricted) {
  root().makeDirectory("/Library/LaunchDaemons");
  const Outcome outcome = remove({directory("/Library/LaunchDaemons/")});
  EXPECT_EQ(outcome.standardOutput, kRemoved) << outcome.standardError;
  EXPECT_FALSE(root().exists("/Library/LaunchDaemons"));
}

TEST_F(InstalledFiles, AModifiableFileIsRemovedOnlyByARemoval) {
  const Keys modifiable{{std::string(deployer::kManifestIsModifiableFile), true}};
  root().writeFile(kFolder + "/settings", "edited", 0644, 501, 20);
  const Entries entries{directory(kFolder), entry(kFolder + "/settings", modifiable)};
  EXPECT_EQ(remove(entries).standardOutput, kRemoved);
  EXPECT_EQ(root().readFile(kFolder + "/settings"), "edited");
  EXPECT_EQ(remove(entries, {"--removal", "Core"}).standardOutput, kRemoved);
  EXPECT_FALSE(root().exists(kFolder));
}

TEST_F(InstalledFiles, AFolderThatAUserReplacedByALinkIsNotFollowed) {
  root().writeFile(kOutside + "/file", "kept");
  root().makeDirectory(kFolder, 0777, 501, 20);
  ASSERT_TRUE(prepares("ln -s " + kOutside + " " + kFolder + "/data && chown -h 501 " + kFolder + "/data"));
  const Outcome outcome = remove({directory(kFolder), directory(kFolder + "/data"), file(kFolder + "/data/file")});
  EXPECT_EQ(outcome.standardOutput, kFailed);
  EXPECT_TRUE(
      loggedBeginning(outcome, "Error",
                      "Unable to remove file. Error Domain=NSCocoaErrorDomain Code=513 \"The link \"data\" on "
                      "the way there belongs to somebody else. Remove the link and run the same command again.\""))
      << outcome.standardError;
  EXPECT_EQ(root().readFile(kOutside + "/file"), "kept");
}

TEST_F(InstalledFiles, LinksOfRootOnTheWayAreTheSystemsOwn) {
  root().makeDirectory("/private/place/Guard");
  root().writeFile("/private/place/Guard/file", "x");
  root().makeLink("/place", "private/place");
  const Outcome outcome = remove({directory("/place/Guard"), file("/place/Guard/file")});
  EXPECT_EQ(outcome.standardOutput, kRemoved) << outcome.standardError;
  EXPECT_FALSE(root().exists("/private/place/Guard"));
  EXPECT_TRUE(root().exists("/private/place"));
  EXPECT_TRUE(root().exists("/place"));
}

TEST_F(InstalledFiles, ALinkOfAnotherUserInADirectorysPlaceGoesAndIsNotFollowed) {
  root().writeFile(kOutside + "/file", "kept");
  root().makeDirectory(kFolder, 0777, 501, 20);
  ASSERT_TRUE(prepares("ln -s " + kOutside + " " + kFolder + "/data && chown -h 501 " + kFolder + "/data"));
  const Outcome outcome = remove({directory(kFolder), directory(kFolder + "/data")});
  EXPECT_EQ(outcome.standardOutput, kRemoved) << outcome.standardError;
  EXPECT_FALSE(root().exists(kFolder));
  EXPECT_EQ(root().readFile(kOutside + "/file"), "kept");
}

TEST_F(InstalledFiles, ADirectoryThatCannotBeListedEndsTheRemoval) {
  root().makeDirectory(kFolder, 0, 501, 20);
  const Outcome outcome = removeWithoutOverride({directory(kFolder)});
  EXPECT_EQ(outcome.standardOutput, kFailed);
  EXPECT_TRUE(
      loggedBeginning(outcome, "Error", "Unable to read directory contents. Error Domain=NSCocoaErrorDomain Code=257"))
      << outcome.standardError;
  EXPECT_TRUE(root().exists(kFolder));
}

TEST_F(InstalledFiles, WhatMayNotBeRemovedEndsTheRemovalAndWhatWasRemovedBeforeStaysRemoved) {
  root().makeDirectory(kFolder, 0555, 501, 20);
  root().writeFile(kFolder + "/stuck", "x");
  root().makeDirectory(kFolder + "/empty");
  root().writeFile("/Library/first", "x");
  root().writeFile("/Library/last", "x");
  const Outcome outcome =
      removeWithoutOverride({file("/Library/last"), file(kFolder + "/stuck"), file("/Library/first")});
  EXPECT_EQ(outcome.standardOutput, kFailed);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Unable to remove file. Error Domain=NSCocoaErrorDomain Code=513"))
      << outcome.standardError;
  EXPECT_FALSE(root().exists("/Library/first"));
  EXPECT_TRUE(root().exists(kFolder + "/stuck"));
  EXPECT_TRUE(root().exists("/Library/last"));
  for (const PropertyList& empty : {directory(kFolder + "/empty"), wholeDirectory(kFolder + "/empty")}) {
    EXPECT_TRUE(loggedBeginning(removeWithoutOverride({empty}), "Error",
                                "Unable to remove directory. Error Domain=NSCocoaErrorDomain Code=513"));
  }
}

TEST_F(InstalledFiles, AnImmutableFileEndsTheRemoval) {
  root().writeFile(kFolder + "/file", "x");
  if (!prepares("chattr +i " + kFolder + "/file")) {
    GTEST_SKIP() << "no file of this machine can be made immutable";
  }
  const Outcome outcome = remove({directory(kFolder), file(kFolder + "/file")});
  EXPECT_TRUE(prepares("chattr -i " + kFolder + "/file"));
  EXPECT_EQ(outcome.standardOutput, kFailed);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Unable to remove file. Error Domain=NSCocoaErrorDomain Code=513"))
      << outcome.standardError;
  EXPECT_TRUE(root().exists(kFolder + "/file"));
}

/// Removal where something is mounted.
class InstalledFilesOnMounts : public InstalledFiles {
 protected:
  [[nodiscard]] bool needsMounts() const override { return true; }

  void mountBelow(const std::string& folder) {
    root().makeDirectory(folder);
    ASSERT_TRUE(prepares("mount -t tmpfs none " + folder + " && echo kept > " + folder + "/file"));
  }
  bool isKept(const std::string& path) { return root().shell("cat " + path).standardOutput == "kept\n"; }
};

TEST_F(InstalledFilesOnMounts, AWholeDirectoryWithSomethingMountedBelowEndsTheRemoval) {
  root().writeFile(kFolder + "/own", "x");
  mountBelow(kFolder + "/sub/mounted");
  const Outcome outcome = remove({wholeDirectory(kFolder)});
  EXPECT_EQ(outcome.standardOutput, kFailed);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Unable to remove directory. Error Domain=")) << outcome.standardError;
  EXPECT_TRUE(isKept(kFolder + "/sub/mounted/file"));
}

TEST_F(InstalledFilesOnMounts, AWholeDirectoryOnWhichSomethingIsMountedEndsTheRemoval) {
  mountBelow(kFolder);
  EXPECT_EQ(remove({wholeDirectory(kFolder)}).standardOutput, kFailed);
  EXPECT_TRUE(isKept(kFolder + "/file"));
}

TEST_F(InstalledFilesOnMounts, ADirectoryOnWhichSomethingIsMountedStaysWhenItHoldsSomething) {
  mountBelow(kFolder);
  const Outcome outcome = remove({directory(kFolder)});
  EXPECT_EQ(outcome.standardOutput, kRemoved);
  EXPECT_EQ(logged(outcome, "Debug", notEmpty(kFolder)), 1);
  EXPECT_TRUE(isKept(kFolder + "/file"));
}

TEST_F(InstalledFilesOnMounts, AnEmptyDirectoryOnWhichSomethingIsMountedEndsTheRemoval) {
  mountBelow(kFolder);
  ASSERT_TRUE(prepares("mv " + kFolder + "/file " + kFolder + "/.DS_Store"));
  const Outcome outcome = remove({directory(kFolder)});
  EXPECT_EQ(outcome.standardOutput, kFailed);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Unable to remove directory. Error Domain=")) << outcome.standardError;
  EXPECT_TRUE(isKept(kFolder + "/.DS_Store"));
}

TEST_F(InstalledFilesOnMounts, AFileOnWhichSomethingIsMountedEndsTheRemoval) {
  root().writeFile(kFolder + "/file", "x");
  root().writeFile(kOutside + "/file", "kept\n");
  ASSERT_TRUE(prepares("mount --bind " + kOutside + "/file " + kFolder + "/file"));
  EXPECT_EQ(remove({file(kFolder + "/file")}).standardOutput, kFailed);
  EXPECT_TRUE(isKept(kOutside + "/file"));
}

TEST_F(InstalledFilesOnMounts, AReadOnlyVolumeEndsTheRemoval) {
  mountBelow(kFolder);
  ASSERT_TRUE(prepares("mount -o remount,ro " + kFolder));
  const Outcome outcome = remove({file(kFolder + "/file")});
  EXPECT_EQ(outcome.standardOutput, kFailed);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Unable to remove file. Error Domain=NSCocoaErrorDomain Code=642"))
      << outcome.standardError;
}

TEST_F(InstalledFilesOnMounts, FilesOnAMountedVolumeAreRemovedLikeAnyOther) {
  mountBelow(kFolder);
  const Outcome outcome = remove({file(kFolder + "/file")});
  EXPECT_EQ(outcome.standardOutput, kRemoved) << outcome.standardError;
  EXPECT_FALSE(isKept(kFolder + "/file"));
}

}  // namespace
