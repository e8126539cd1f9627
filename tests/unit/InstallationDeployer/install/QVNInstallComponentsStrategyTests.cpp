#include <fcntl.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <limits>

#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/steps/QVNAggregateInstallStrategy.h"
#include "tests/support/Unprivileged.h"
#include "tests/unit/InstallationDeployer/install/InstallComponentsTest.h"

namespace {

using tests::CapturedLog;
using tests::mentions;

constexpr auto kMostBytes = std::numeric_limits<std::int64_t>::max();

class InstallComponents : public tests::InstallComponentsTest {};

/// The index with the sizes that the check of the disk space reads.
class InstallComponentsDiskSpace : public tests::InstallComponentsTest {
 protected:
  void writeSizes(Keys sizes) {
    const auto written = foundation::plist::writeFile(
        PropertyList::dictionary(std::move(sizes)), bundle() + "/" + std::string(deployer::kQVNManifestDirectoryPath) +
                                                        "/" + std::string(deployer::kQVNManifestIndexName));
    ASSERT_TRUE(written.ok());
  }
  void writeComponentSize(const std::string& component, PropertyList size) {
    writeComponent(component, PropertyList::dictionary({{std::string(deployer::kManifestComponentSize), size}}));
  }
  bool check(const deployer::Plan& components = {}) {
    step_ = makeStep<Step>(components);
    return step_->CheckDiskSpaceFor(components);
  }
};

// --- The step as a whole
// -------------------------------------------------------------------------------------------------

TEST_F(InstallComponents, AStepAfterAFailureDoesNothingAndSetsNoState) {
  step_ = makeStep<Step>({"Core"});
  const CapturedLog log;
  EXPECT_FALSE(step_->execute(false));
  EXPECT_EQ(state(), deployer::QVNInstallerStateSuccess);
  EXPECT_TRUE(run().states.empty());
  EXPECT_EQ(log.count("Debug", ">>> executing step with plan: (Core)"), 1U);
}

TEST_F(InstallComponents, InstallsThePlannedComponentsOfTheProductAndNoOthers) {
  writeIndex(PropertyList(PropertyList::Array{"Core", "Extra"}));
  describe("Core", {file("/core", "core")});
  describe("Extra", {fileWithChecksum("/extra", addPayload("extra", "Extra"))});
  describe("Foreign", {fileWithChecksum("/foreign", addPayload("foreign", "Foreign"))});
  step_ = makeStep<Step>({"Core", "Foreign"});
  const CapturedLog log;
  EXPECT_TRUE(step_->execute(true));
  EXPECT_EQ(contentOf(target("/core")), "core");
  EXPECT_FALSE(exists(target("/extra")));
  EXPECT_FALSE(exists(target("/foreign")));
  EXPECT_EQ(state(), deployer::QVNInstallerStateInstalling);
  EXPECT_EQ(log.count("Debug", "<step> installPlan for " + product_ + ": (\n    Core\n)"), 1U);
}

TEST_F(InstallComponents, TheLogNamesTheStepByItsPathInTheTree) {
  writeIndex(PropertyList(PropertyList::Array{}));
  auto plan = std::make_shared<deployer::Plan>();
  deployer::StepList steps;
  steps.push_back(std::make_unique<Step>(PropertyList(), "installComponents", nullptr, run(), plan));
  deployer::QVNAggregateInstallStrategy tree({}, "installer", std::move(steps), nullptr, run());
  const CapturedLog log;
  EXPECT_TRUE(tree.execute(true));
  EXPECT_TRUE(mentions(log, "<installer.installComponents> installPlan for " + product_ + ": ("));
}

TEST_F(InstallComponents, WithoutAPlanTheStepFails) {
  Step step({}, "step", nullptr, run(), nullptr);
  const CapturedLog log;
  EXPECT_FALSE(step.execute(true));
  EXPECT_EQ(step.installerState(), deployer::QVNInstallerStateFailed);
  EXPECT_EQ(log.count("Debug", "<step> installPlan for " + product_ + ": (null)"), 1U);
  EXPECT_EQ(log.count("Info", "No plan to install"), 1U);
}

TEST_F(InstallComponents, AnEmptyPlanIsLoggedAndSucceeds) {
  const CapturedLog log;
  EXPECT_TRUE(installComponents({}));
  EXPECT_EQ(log.count("Info", "Empty plan. Nothing to install"), 1U);
  EXPECT_EQ(state(), deployer::QVNInstallerStateInstalling);
}

TEST_F(InstallComponents, AComponentWithoutAManifestInstallsNothingAndSucceeds) {
  const CapturedLog log;
  EXPECT_TRUE(installComponents({"Absent"}));
  EXPECT_TRUE(log.texts("Error").empty());
}

TEST_F(InstallComponents, AStepWithoutRoomInstallsNothing) {
  writeIndex(PropertyList(PropertyList::Array{"Core"}));
  writeComponent("Core", PropertyList::dictionary({{std::string(deployer::kManifestComponentSize), kMostBytes},
                                                   {std::string(deployer::kManifestListOfFiles),
                                                    PropertyList(Entries{file("/core", "core")})}}));
  step_ = makeStep<Step>({"Core"});
  const CapturedLog log;
  EXPECT_FALSE(step_->execute(true));
  EXPECT_EQ(state(), deployer::QVNInstallerStateInsufficientDiskSpace);
  EXPECT_FALSE(exists(target("/core")));
}

// --- Disk space
// ----------------------------------------------------------------------------------------------------------

TEST_F(InstallComponentsDiskSpace, AReceiptWithoutPayloadContentsLogsThePayloadSizeButDoesNotCountIt) {
  writeSizes({{"PayloadSize", kMostBytes}, {"ReceiptSize", 100}, {"ReceiptHasPayloadContents", false}});
  const CapturedLog log;
  EXPECT_TRUE(check());
  EXPECT_EQ(log.count("Debug", "payloadSize in bytes: 9223372036854775807"), 1U);
  EXPECT_EQ(log.count("Debug", "receiptSize in bytes: 100"), 1U);
  EXPECT_EQ(log.count("Debug", "totalReceiptSize in bytes: 100"), 1U);
}

TEST_F(InstallComponentsDiskSpace, AReceiptWithPayloadContentsNeedsRoomForBoth) {
  writeSizes({{"PayloadSize", 20}, {"ReceiptSize", 100}, {"ReceiptHasPayloadContents", true}});
  const CapturedLog log;
  EXPECT_TRUE(check());
  EXPECT_EQ(log.count("Debug", "totalReceiptSize in bytes: 120"), 1U);
}

TEST_F(InstallComponentsDiskSpace, AnIndexWithoutSizesCountsAsNothing) {
  const CapturedLog log;
  EXPECT_TRUE(check({"Absent"}));
  const auto messages = log.texts("Debug");
  ASSERT_EQ(messages.size(), 4U);
  EXPECT_EQ(messages[0], "payloadSize in bytes: (null)");
  EXPECT_EQ(messages[1], "receiptSize in bytes: (null)");
  EXPECT_EQ(messages[2], "totalReceiptSize in bytes: 0");
  EXPECT_TRUE(messages[3].starts_with("free disk space in bytes: "));
}

TEST_F(InstallComponentsDiskSpace, ComponentsAndReceiptTogetherMustFit) {
  struct statvfs volume {};
  ASSERT_EQ(statvfs("/", &volume), 0);
  const auto half = static_cast<std::int64_t>(volume.f_bavail * volume.f_frsize / 2);
  // Three halves never fit into one whole, however the free space moves meanwhile.
  writeSizes({{"ReceiptSize", half}});
  writeComponentSize("A", half);
  writeComponentSize("B", half);
  const CapturedLog log;
  EXPECT_FALSE(check({"A", "B"}));
  EXPECT_EQ(state(), deployer::QVNInstallerStateInsufficientDiskSpace);
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("Not enough space to install. Required space: " + std::to_string(3 * half) +
                                    ", free space: "))
      << errors[0];
}

TEST_F(InstallComponentsDiskSpace, HostileSizesEndInAShortage) {
  writeSizes({{"ReceiptSize", std::numeric_limits<std::uint64_t>::max()},
              {"PayloadSize", kMostBytes},
              {"ReceiptHasPayloadContents", true}});
  writeComponentSize("A", kMostBytes);
  const CapturedLog log;
  EXPECT_FALSE(check({"A"}));
  EXPECT_EQ(state(), deployer::QVNInstallerStateInsufficientDiskSpace);
}

TEST_F(InstallComponentsDiskSpace, SizesOfOtherTypesCountAsAbsent) {
  writeSizes({{"ReceiptSize", "many"}, {"PayloadSize", PropertyList(Entries{1})}});
  writeComponentSize("A", "9223372036854775807");
  const CapturedLog log;
  EXPECT_TRUE(check({"A"}));
  EXPECT_EQ(log.count("Debug", "totalReceiptSize in bytes: 0"), 1U);
}

// --- Directories
// ---------------------------------------------------------------------------------------------------------

TEST_F(InstallComponents, DirectoriesGetTheirOwnAttributesWhateverTheUmask) {
  const CapturedLog log;
  EXPECT_TRUE(install({directory("/a", attributes(0775, 501, 20)), directory("/a/b", attributes(02711, 502, 80))}));
  EXPECT_EQ(attributesOf(target("/a")), "501:20 0775");
  EXPECT_EQ(attributesOf(target("/a/b")), "502:80 2711");
  EXPECT_EQ(log.count("Debug", "copyFileWithManifestInfo:forComponent:source:destination:attributes:: filePath = " +
                                   target("/a")),
            1U);
}

TEST_F(InstallComponents, MissingParentsOfADirectoryGetTheDefaultAttributes) {
  const CapturedLog log;
  EXPECT_TRUE(install({directory("/a/b/c", attributes(0700, 501, 20))}));
  EXPECT_EQ(attributesOf(target("/a")), "0:80 0755");
  EXPECT_EQ(attributesOf(target("/a/b")), "0:80 0755");
  EXPECT_EQ(attributesOf(target("/a/b/c")), "501:20 0700");
}

TEST_F(InstallComponents, ADirectoryWithoutAttributesGetsTheDefaults) {
  const CapturedLog log;
  EXPECT_TRUE(install({directory("/a", {})}));
  EXPECT_EQ(attributesOf(target("/a")), "0:80 0755");
}

TEST_F(InstallComponents, AnExistingDirectoryKeepsItsContentAndGetsTheAttributes) {
  writeFile(target("/a/kept"), "kept");
  const CapturedLog log;
  EXPECT_TRUE(install({directory("/a", attributes(0750, 501, 20))}));
  EXPECT_EQ(contentOf(target("/a/kept")), "kept");
  EXPECT_EQ(attributesOf(target("/a")), "501:20 0750");
}

TEST_F(InstallComponents, ADirectoryWhoseNameAFileHasFails) {
  writeFile(target("/a"), "file");
  const CapturedLog log;
  EXPECT_FALSE(install({directory("/a")}));
  EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("error: Error Domain=NSCocoaErrorDomain Code=")) << errors[0];
}

// --- Files
// ---------------------------------------------------------------------------------------------------------------

TEST_F(InstallComponents, FilesComeFromThePayloadUnderTheirChecksumAndGetTheirAttributes) {
  const CapturedLog log;
  EXPECT_TRUE(install({file("/tool", "a tool", attributes(0755, 501, 20)), file("/empty", "", attributes(0600))}));
  EXPECT_EQ(contentOf(target("/tool")), "a tool");
  EXPECT_EQ(attributesOf(target("/tool")), "501:20 0755");
  EXPECT_EQ(contentOf(target("/empty")), "");
  EXPECT_EQ(attributesOf(target("/empty")), "0:0 0600");
  EXPECT_TRUE(log.texts("Error").empty());
}

TEST_F(InstallComponents, SetIdBitsSurviveTheChangeOfOwner) {
  const CapturedLog log;
  EXPECT_TRUE(
      install({file("/setuid", "1", attributes(04755, 501, 20)), file("/setgid", "2", attributes(02755, 501, 20)),
               directory("/sticky", attributes(01777, 501, 20))}));
  EXPECT_EQ(attributesOf(target("/setuid")), "501:20 4755");
  EXPECT_EQ(attributesOf(target("/setgid")), "501:20 2755");
  EXPECT_EQ(attributesOf(target("/sticky")), "501:20 1777");
}

TEST_F(InstallComponents, MissingParentsOfAFileGetTheDefaultAttributes) {
  const CapturedLog log;
  EXPECT_TRUE(install({file("/a/b/tool", "tool")}));
  EXPECT_EQ(attributesOf(target("/a")), "0:80 0755");
  EXPECT_EQ(attributesOf(target("/a/b")), "0:80 0755");
}

TEST_F(InstallComponents, AnExistingFileIsReplacedAndNotWrittenInto) {
  writeFile(target("/tool"), "old");
  ASSERT_EQ(::link(target("/tool").c_str(), target("/other-name").c_str()), 0);
  const CapturedLog log;
  EXPECT_TRUE(install({file("/tool", "new", attributes(0755))}));
  EXPECT_EQ(contentOf(target("/tool")), "new");
  EXPECT_EQ(contentOf(target("/other-name")), "old");
  EXPECT_EQ(attributesOf(target("/tool")), "0:0 0755");
}

TEST_F(InstallComponents, ALinkInTheWayOfAFileIsReplacedAndNotFollowed) {
  writeFile(path("victim"), "precious");
  ASSERT_EQ(symlink(path("victim").c_str(), target("/tool").c_str()), 0);
  const CapturedLog log;
  EXPECT_TRUE(install({file("/tool", "new")}));
  EXPECT_EQ(contentOf(path("victim")), "precious");
  EXPECT_EQ(contentOf(target("/tool")), "new");
  EXPECT_TRUE(S_ISREG(statusOf(target("/tool")).st_mode));
}

TEST_F(InstallComponents, ADirectoryInTheWayOfAFileFails) {
  ASSERT_EQ(mkdir(target("/tool").c_str(), 0755), 0);
  const CapturedLog log;
  EXPECT_FALSE(install({file("/tool", "new")}));
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("Error writing: Error Domain=")) << errors[0];
  EXPECT_TRUE(errors[0].ends_with(" (" + target("/tool") + ")")) << errors[0];
}

TEST_F(InstallComponents, AFileInTheWayOfAParentFails) {
  writeFile(target("/a"), "file");
  const CapturedLog log;
  EXPECT_FALSE(install({file("/a/tool", "new")}));
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("Error writing: Error Domain=NSCocoaErrorDomain Code=")) << errors[0];
}

TEST_F(InstallComponents, APayloadFileThatIsAbsentFails) {
  const std::string checksum = checksumOf("never stored");
  const CapturedLog log;
  EXPECT_FALSE(install({fileWithChecksum("/tool", checksum)}));
  EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
  EXPECT_EQ(log.texts("Error"), std::vector<std::string>{"path doesn't exist at " + payload() + "/" + checksum});
  EXPECT_FALSE(exists(target("/tool")));
}

TEST_F(InstallComponents, AFileWithoutChecksumAndExternalSourceHasNoSource) {
  const CapturedLog log;
  EXPECT_FALSE(install({entry("/tool", attributes(0644))}));
  EXPECT_EQ(log.texts("Error"), std::vector<std::string>{"path doesn't exist at (null)"});
}

TEST_F(InstallComponents, AChecksumMismatchFailsAndWritesNothingNotEvenTheParent) {
  const std::string claimed = checksumOf("what was packed");
  writeFile(payload() + "/" + claimed, "what lies there");
  const CapturedLog log;
  EXPECT_FALSE(install({fileWithChecksum("/a/tool", claimed)}));
  const std::vector<std::string> expected{
      "Checksum mismatch for component Core.\n\tFound:" + checksumOf("what lies there") + ". \n\tExpected: " + claimed +
          "\n\tDestination: " + target("/a/tool"),
      "The file that does not match is " + payload() + "/" + claimed};
  EXPECT_EQ(log.texts("Error"), expected);
  EXPECT_FALSE(exists(target("/a")));
}

TEST_F(InstallComponents, AChecksumInUpperCaseDoesNotMatch) {
  std::string upper = checksumOf("tool");
  std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return std::toupper(c); });
  writeFile(payload() + "/" + upper, "tool");
  const CapturedLog log;
  EXPECT_FALSE(install({fileWithChecksum("/tool", upper)}));
  EXPECT_TRUE(mentions(log, "Checksum mismatch for component Core."));
}

// --- Sources that are no regular files
// -----------------------------------------------------------------------------------

class InstallComponentsOddSource : public tests::InstallComponentsTest {
 protected:
  void SetUp() override {
    InstallComponentsTest::SetUp();
    std::filesystem::create_directories(payload());
  }
  void expectReadError() {
    const CapturedLog log;
    EXPECT_FALSE(install({fileWithChecksum("/tool", checksum_)}));
    EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
    const auto errors = log.texts("Error");
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_TRUE(errors[0].starts_with("Error: Error Domain=NSCocoaErrorDomain Code=")) << errors[0];
    EXPECT_TRUE(errors[0].ends_with(" (" + source_ + ")")) << errors[0];
    EXPECT_FALSE(exists(target("/tool")));
  }

  const std::string checksum_ = checksumOf("odd");
  const std::string source_ = payload() + "/" + checksum_;
};

TEST_F(InstallComponentsOddSource, APipeIsAnErrorAndNoWait) {
  ASSERT_EQ(mkfifo(source_.c_str(), 0644), 0);
  expectReadError();
}

TEST_F(InstallComponentsOddSource, AFolderIsAnError) {
  ASSERT_EQ(mkdir(source_.c_str(), 0755), 0);
  expectReadError();
}

TEST_F(InstallComponentsOddSource, ADeviceIsAnError) {
  ASSERT_EQ(symlink("/dev/zero", source_.c_str()), 0);
  expectReadError();
}

TEST_F(InstallComponentsOddSource, ALinkLoopDoesNotExist) {
  ASSERT_EQ(symlink(source_.c_str(), source_.c_str()), 0);
  const CapturedLog log;
  EXPECT_FALSE(install({fileWithChecksum("/tool", checksum_)}));
  EXPECT_EQ(log.texts("Error"), std::vector<std::string>{"path doesn't exist at " + source_});
}

TEST_F(InstallComponentsOddSource, AFileThatNoMemoryCanHoldIsAnError) {
  writeFile(source_, "");
  if (truncate(source_.c_str(), off_t{1} << 42) != 0) {
    GTEST_SKIP() << "the file system takes no file of this size";
  }
  expectReadError();
}

TEST_F(InstallComponentsOddSource, ALinkToARegularFileIsRead) {
  writeFile(path("elsewhere"), "odd");
  ASSERT_EQ(symlink(path("elsewhere").c_str(), source_.c_str()), 0);
  const CapturedLog log;
  EXPECT_TRUE(install({fileWithChecksum("/tool", checksum_)}));
  EXPECT_EQ(contentOf(target("/tool")), "odd");
}

// --- System folder, modifiable files
// -------------------------------------------------------------------------------------

TEST_F(InstallComponents, AFileBelowTheSystemFolderIsNeitherWrittenNorLoggedAndTheStepSucceeds) {
  run().configuration().setTargetPath("/");
  const std::string place = "/System/corvane-test-that-is-never-written";
  const CapturedLog log;
  EXPECT_TRUE(
      install({directory(place), file(place + "/file", "content"), fileWithChecksum(place + "/absent", "none")}));
  EXPECT_FALSE(exists(place));
  EXPECT_FALSE(mentions(log, "corvane-test-that-is-never-written"));
}

TEST_F(InstallComponents, AModifiableFileIsWrittenOnAFirstInstallation) {
  const CapturedLog log;
  EXPECT_TRUE(install({file("/settings", "new", joined(attributes(0644), {{"IsModifiableFile", true}}))}));
  EXPECT_EQ(contentOf(target("/settings")), "new");
}

TEST_F(InstallComponents, AModifiableFileIsLeftUntouchedWhenThereIsAReceipt) {
  run().configuration().setHasInstallerReceipt(true);
  writeFile(target("/settings"), "mine", 0600);
  const CapturedLog log;
  EXPECT_TRUE(
      install({file("/settings", "new", joined(attributes(0644), {{"IsModifiableFile", true}})),
               file("/absent", "new", joined(attributes(0644), {{"IsModifiableFile", true}})), file("/tool", "new")}));
  EXPECT_EQ(contentOf(target("/settings")), "mine");
  EXPECT_EQ(attributesOf(target("/settings")), "0:0 0600");
  EXPECT_FALSE(exists(target("/absent")));
  EXPECT_EQ(contentOf(target("/tool")), "new");
}

// --- External files and directories
// --------------------------------------------------------------------------------------

TEST_F(InstallComponents, AnExternalFileComesFromItsPath) {
  writeFile(path("outside"), "external");
  const CapturedLog log;
  EXPECT_TRUE(install({external("/tool", path("outside"), attributes(0755, 501, 20))}));
  EXPECT_EQ(contentOf(target("/tool")), "external");
  EXPECT_EQ(attributesOf(target("/tool")), "501:20 0755");
}

TEST_F(InstallComponents, AnExternalSourceIsNotReachedThroughALinkOfAnotherUser) {
  writeFile(path("secret/file"), "secret");
  std::filesystem::create_directories(path("theirs"));
  ASSERT_EQ(chown(path("theirs").c_str(), 501, 20), 0);
  for (const auto& [name, leadsTo] : {std::pair("file", "secret/file"), std::pair("way", "secret")}) {
    ASSERT_EQ(symlink(path(leadsTo).c_str(), path(std::string("theirs/") + name).c_str()), 0);
    ASSERT_EQ(lchown(path(std::string("theirs/") + name).c_str(), 501, 20), 0);
  }
  const CapturedLog log;
  EXPECT_FALSE(install({external("/tool", path("theirs/file"))}));
  EXPECT_FALSE(install({external("/tool", path("theirs/way/file"))}));
  EXPECT_FALSE(install({externalDirectory("/data", path("theirs/way"), attributes(0755, 0, 0))}));
  EXPECT_FALSE(install({externalDirectory("/data", path("theirs"), attributes(0755, 0, 0))}));
  EXPECT_FALSE(exists(target("/tool")));
  EXPECT_FALSE(exists(target("/data/file")));
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 4U) << log.text();
  EXPECT_TRUE(errors[0].starts_with("Error: Error Domain=NSCocoaErrorDomain Code=257 ")) << errors[0];
  EXPECT_TRUE(errors[1].starts_with("Error: Error Domain=NSCocoaErrorDomain Code=257 ")) << errors[1];
  EXPECT_TRUE(errors[2].starts_with("Unable to access to external directory.\n")) << errors[2];
  EXPECT_TRUE(errors[3].starts_with("Unable to copy external file.\n")) << errors[3];
}

TEST_F(InstallComponents, ARelativeExternalPathStartsAtThePayloadAndFoldsItsParents) {
  writeFile(bundle() + "/Contents/Install/Extra/file", "external");
  const CapturedLog log;
  EXPECT_TRUE(install({external("/tool", "../Extra/./file")}));
  EXPECT_EQ(contentOf(target("/tool")), "external");
}

TEST_F(InstallComponents, AnExternalFileWhoseSourceIsAbsentIsSkippedWithSuccess) {
  const CapturedLog log;
  EXPECT_TRUE(install({external("/a/tool", path("nowhere")), external("/b/tool", "not/in/the/payload")}));
  EXPECT_FALSE(exists(target("/a")));
  EXPECT_FALSE(exists(target("/b")));
  EXPECT_TRUE(log.texts("Error").empty());
}

TEST_F(InstallComponents, AnExternalFileWithAChecksumIsCheckedToo) {
  writeFile(path("outside"), "changed");
  const CapturedLog log;
  EXPECT_FALSE(install({external("/tool", path("outside"), {{"SHAChecksum", checksumOf("expected")}})}));
  EXPECT_TRUE(mentions(log, "Checksum mismatch for component Core."));
  EXPECT_FALSE(exists(target("/tool")));
}

TEST_F(InstallComponents, AnExternalDirectoryIsEmptiedAndRefilledOneLevelDeepOnEveryRun) {
  writeFile(path("outside/one"), "1", 0640);
  writeFile(path("outside/two"), "2", 04755);
  ASSERT_EQ(chown(path("outside/one").c_str(), 501, 20), 0);
  writeFile(target("/data/stale/deep"), "stale");
  for (int round = 0; round < 2; ++round) {
    const CapturedLog log;
    EXPECT_TRUE(install({externalDirectory("/data", path("outside"), attributes(0750, 501, 20))}));
    EXPECT_FALSE(exists(target("/data/stale")));
    EXPECT_EQ(contentOf(target("/data/one")), "1");
    EXPECT_EQ(attributesOf(target("/data/one")), "501:20 0640");
    EXPECT_EQ(contentOf(target("/data/two")), "2");
    EXPECT_EQ(attributesOf(target("/data/two")), "0:0 4755");
    EXPECT_EQ(attributesOf(target("/data")), "501:20 0750");
    EXPECT_EQ(log.count("Info", "Copied 2 external files to " + target("/data") + "."), 1U);
    EXPECT_EQ(log.count("Debug",
                        "copyFileWithManifestInfo:forComponent:source:destination:attributes:: itemsToCopy.count = 2"),
              1U);
    EXPECT_EQ(
        log.count("Debug", "copyFileWithManifestInfo:forComponent:source:destination:attributes:: externalFilePath = " +
                               path("outside")),
        1U);
    writeFile(target("/data/stale/deep"), "stale again");
  }
}

TEST_F(InstallComponents, AnExternalDirectoryThatCannotBeEmptiedFails) {
  ASSERT_EQ(chmod(path("").c_str(), 0755), 0);
  ASSERT_EQ(chmod(target().c_str(), 0755), 0);
  writeFile(target("/data/stale"), "stale");
  describe("Core", {});
  step_ = makeStep<Step>({"Core"});
  const CapturedLog log;
  {
    const tests::Unprivileged nobody;
    ASSERT_TRUE(nobody.changed());
    EXPECT_FALSE(step_->copyFileWithManifestInfo(deployer::FileEntry(externalDirectory("/data", path("nowhere"), {})),
                                                 "Core", run().installerRootPath(), target(), {}));
  }
  EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("Unable to delete directory: " + target("/data") +
                                    "\nError Domain=NSCocoaErrorDomain Code=513 "))
      << errors[0];
  EXPECT_EQ(contentOf(target("/data/stale")), "stale");
}

TEST_F(InstallComponents, AnExternalDirectoryThatCannotBeMadeAnewFails) {
  // Its path fits, but the longer one of the directory in the making does not.
  constexpr std::size_t kLength = PATH_MAX - 20;
  const std::string name = "/directory";
  std::string place;
  while (target(place).size() + name.size() + 1 < kLength) {
    place += "/" + std::string(std::min<std::size_t>(200, kLength - target(place).size() - name.size() - 1), 'd');
  }
  place += name;
  std::filesystem::create_directories(target(place));
  const CapturedLog log;
  EXPECT_FALSE(install({externalDirectory(place, path("nowhere"), attributes(0755))}));
  EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("Unable to create directory: " + target(place) +
                                    "\nError Domain=NSCocoaErrorDomain Code=514 "))
      << errors[0];
}

TEST_F(InstallComponents, AnExternalDirectoryThatIsMissingLeavesAnEmptyDirectory) {
  writeFile(target("/data/stale"), "stale");
  const CapturedLog log;
  EXPECT_TRUE(install({externalDirectory("/data", path("nowhere"))}));
  EXPECT_TRUE(std::filesystem::is_empty(target("/data")));
  EXPECT_EQ(log.count("Info", "Copied 0 external files to " + target("/data") + "."), 1U);
}

TEST_F(InstallComponents, AnExternalDirectoryThatIsAFileFails) {
  writeFile(path("outside"), "file");
  const CapturedLog log;
  EXPECT_FALSE(install({externalDirectory("/data", path("outside"))}));
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("Unable to access to external directory.\nError Domain=")) << errors[0];
}

TEST_F(InstallComponents, AnExternalDirectoryThatHoldsADirectoryFails) {
  writeFile(path("outside/inner/file"), "file");
  const CapturedLog log;
  EXPECT_FALSE(install({externalDirectory("/data", path("outside"))}));
  EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("Unable to copy external file.\nError Domain=")) << errors[0];
}

TEST_F(InstallComponents, TheRootIsNeverEmptiedForAnExternalDirectory) {
  writeFile(target("/precious"), "precious");
  writeFile(path("outside/one"), "1");
  const CapturedLog log;
  EXPECT_FALSE(install({externalDirectory("/", path("outside"))}));
  EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
  EXPECT_EQ(contentOf(target("/precious")), "precious");
  EXPECT_EQ(log.texts("Error").size(), 1U);
}

// --- Links
// ---------------------------------------------------------------------------------------------------------------

TEST_F(InstallComponents, LinksAreMadeAfterAllFilesWithTheirTextAndOwner) {
  const CapturedLog log;
  EXPECT_TRUE(install({link("/a/link", "../tool", attributes(0755, 501, 20)), directory("/a"), file("/tool", "tool")}));
  char text[64] = {};
  ASSERT_EQ(readlink(target("/a/link").c_str(), text, sizeof text - 1), 7);
  EXPECT_STREQ(text, "../tool");
  EXPECT_EQ(statusOf(target("/a/link")).st_uid, 501U);
  EXPECT_EQ(statusOf(target("/a/link")).st_gid, 20U);
  EXPECT_EQ(state(), deployer::QVNInstallerStateInstalling);
  EXPECT_FALSE(install({link("/early", "tool"), fileWithChecksum("/late", checksumOf("absent"))}));
  EXPECT_FALSE(exists(target("/early"))) << "made before a file that comes after it in the list";
}

TEST_F(InstallComponents, ALinkWithoutOwnerAndGroupBelongsToRoot) {
  const CapturedLog log;
  EXPECT_TRUE(install({link("/link", "anywhere", {})}));
  EXPECT_EQ(statusOf(target("/link")).st_uid, 0U);
  EXPECT_EQ(statusOf(target("/link")).st_gid, 0U);
}

TEST_F(InstallComponents, ALinkReplacesWhatItsPathLeadsTo) {
  writeFile(path("victim"), "precious");
  ASSERT_EQ(symlink(path("victim").c_str(), target("/link").c_str()), 0);
  writeFile(target("/folder/file"), "file");
  const CapturedLog log;
  EXPECT_TRUE(install({link("/link", "new"), link("/folder", "new")}));
  EXPECT_EQ(contentOf(path("victim")), "precious");
  EXPECT_TRUE(S_ISLNK(statusOf(target("/link")).st_mode));
  EXPECT_TRUE(S_ISLNK(statusOf(target("/folder")).st_mode));
}

TEST_F(InstallComponents, ADanglingLinkInTheWayIsNotSeenAndMakingTheLinkFails) {
  ASSERT_EQ(symlink("nowhere", target("/link").c_str()), 0);
  const CapturedLog log;
  EXPECT_FALSE(install({link("/link", "new"), link("/later", "made")}));
  EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("Failed to create symbolic link: new\nError Domain=")) << errors[0];
  EXPECT_TRUE(exists(target("/later"))) << "the remaining links are made all the same";
}

TEST_F(InstallComponents, ALinkWithoutItsFolderFailsTwiceAndTheRestIsMade) {
  const CapturedLog log;
  EXPECT_FALSE(install({link("/absent/link", "text"), link("/later", "made")}));
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 2U);
  EXPECT_TRUE(errors[0].starts_with("Failed to create symbolic link: text\nError Domain=")) << errors[0];
  EXPECT_EQ(errors[1], "Unable to set attributes on symbolic file: " + target("/absent/link"));
  EXPECT_TRUE(exists(target("/later")));
}

TEST_F(InstallComponents, WhatCannotBeRemovedFromALinksPlaceEndsTheMakingOfLinks) {
  ASSERT_EQ(chmod(path("").c_str(), 0755), 0);
  ASSERT_EQ(chmod(target().c_str(), 0755), 0);
  writeFile(target("/taken"), "x");
  const CapturedLog log;
  auto given = deployer::QVNInstallerStateSuccess;
  {
    const tests::Unprivileged nobody;
    ASSERT_TRUE(nobody.changed());
    EXPECT_FALSE(Step::createSymbolicLinks(
        {deployer::FileEntry(link("/taken", "text")), deployer::FileEntry(link("/later", "text"))}, target(), given));
  }
  EXPECT_EQ(given, deployer::QVNInstallerStateFailed);
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 1U) << "the later link is not even tried";
  EXPECT_TRUE(errors[0].starts_with("Failed to delete symbolic link " + target("/taken") +
                                    ". Error Domain=NSCocoaErrorDomain Code=513 "))
      << errors[0];
  EXPECT_TRUE(errors[0].ends_with(" ")) << errors[0];
  EXPECT_EQ(contentOf(target("/taken")), "x");
}

TEST_F(InstallComponents, ALinkThatCannotHaveItsAttributesStaysAndIsToldOfOnce) {
  ASSERT_EQ(chmod(path("").c_str(), 0755), 0);
  ASSERT_EQ(chmod(target().c_str(), 0777), 0);
  auto given = deployer::QVNInstallerStateSuccess;
  const CapturedLog log;
  {
    const tests::Unprivileged nobody;
    ASSERT_TRUE(nobody.changed());
    EXPECT_FALSE(Step::createSymbolicLinks({deployer::FileEntry(link("/link", "text", attributes(0755, 0, 0))),
                                            deployer::FileEntry(link("/next", "text"))},
                                           target(), given));
  }
  EXPECT_EQ(given, deployer::QVNInstallerStateFailed);
  const std::vector<std::string> expected{"Unable to set attributes on symbolic file: " + target("/link"),
                                          "Unable to set attributes on symbolic file: " + target("/next")};
  EXPECT_EQ(log.texts("Error"), expected);
  EXPECT_TRUE(S_ISLNK(statusOf(target("/link")).st_mode));
  EXPECT_TRUE(S_ISLNK(statusOf(target("/next")).st_mode));
}

TEST_F(InstallComponents, ALinkWithoutATargetFails) {
  const CapturedLog log;
  EXPECT_FALSE(install({entry("/link", {{"IsSymbolicLink", true}})}));
  const auto errors = log.texts("Error");
  ASSERT_FALSE(errors.empty());
  EXPECT_TRUE(errors[0].starts_with("Failed to create symbolic link: (null)\n")) << errors[0];
}

TEST_F(InstallComponents, TheClassFormReportsItsStateToTheCaller) {
  auto given = deployer::QVNInstallerStateFailed;
  const CapturedLog log;
  EXPECT_TRUE(Step::createSymbolicLinks({deployer::FileEntry(link("/link", "text"))}, target(), given));
  EXPECT_EQ(given, deployer::QVNInstallerStateInstalling);
  EXPECT_FALSE(Step::createSymbolicLinks({deployer::FileEntry(link("/absent/link", "text"))}, target(), given));
  EXPECT_EQ(given, deployer::QVNInstallerStateFailed);
}

TEST_F(InstallComponents, TheInstanceFormTakesOverTheStateOfTheClassForm) {
  step_ = makeStep<Step>({});
  const CapturedLog log;
  EXPECT_TRUE(step_->createSymbolicLinks({deployer::FileEntry(link("/link", "text"))}, target()));
  EXPECT_EQ(state(), deployer::QVNInstallerStateInstalling);
  EXPECT_EQ(run().states, std::vector{deployer::QVNInstallerStateInstalling});
}

TEST_F(InstallComponents, AFailureInALaterComponentLeavesTheLinksOfTheEarlierOnes) {
  describe("Core", {link("/link", "text")});
  describe("Extra", {fileWithChecksum("/tool", checksumOf("absent")), link("/never", "text")});
  const CapturedLog log;
  EXPECT_FALSE(installComponents({"Core", "Extra"}));
  EXPECT_TRUE(exists(target("/link")));
  EXPECT_FALSE(exists(target("/never")));
}

TEST_F(InstallComponents, AFailingLinkEndsTheRunBeforeTheNextComponent) {
  describe("Core", {link("/absent/link", "text")});
  describe("Extra", {fileWithChecksum("/tool", addPayload("tool", "Extra"))});
  const CapturedLog log;
  EXPECT_FALSE(installComponents({"Core", "Extra"}));
  EXPECT_FALSE(exists(target("/tool")));
}

// --- Hostile entries
// -----------------------------------------------------------------------------------------------------

class InstallComponentsHostilePath : public tests::InstallComponentsTest {
 protected:
  void SetUp() override {
    InstallComponentsTest::SetUp();
    writeFile(target("/precious"), "precious");
    before_ = attributesOf(target());
  }
  void expectRefused(const PropertyList& hostile) { static_cast<void>(errorOf(hostile)); }
  /// The only error of an install of this entry, which changes nothing.
  std::string errorOf(const PropertyList& hostile) {
    const CapturedLog log;
    EXPECT_FALSE(install({hostile, file("/later", "later")}));
    EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
    EXPECT_EQ(log.texts("Error").size(), 1U) << log.text();
    EXPECT_EQ(contentOf(target("/precious")), "precious");
    EXPECT_EQ(attributesOf(target()), before_);
    const auto errors = log.texts("Error");
    return errors.empty() ? "" : errors.front();
  }
  void expectOnlyError(const PropertyList& hostile, std::string_view beginning, std::string_view end = "") {
    const std::string error = errorOf(hostile);
    EXPECT_TRUE(error.starts_with(beginning)) << error;
    EXPECT_TRUE(error.ends_with(end)) << error;
  }
  PropertyList without(const PropertyList& given) { return given.with(deployer::kManifestFilePath, PropertyList()); }

  std::string before_;
};

TEST_F(InstallComponentsHostilePath, AFileWithoutAPathIsRefused) { expectRefused(without(file("/x", "content"))); }
TEST_F(InstallComponentsHostilePath, ADirectoryWithoutAPathIsRefused) {
  expectRefused(without(directory("/x", attributes(0700, 501, 20))));
}
TEST_F(InstallComponentsHostilePath, AnExternalDirectoryWithoutAPathIsRefused) {
  expectRefused(without(externalDirectory("/x", path("nowhere"))));
}
TEST_F(InstallComponentsHostilePath, ALinkWithoutAPathIsRefused) { expectRefused(without(link("/x", "text"))); }
TEST_F(InstallComponentsHostilePath, ALinkInPlaceOfTheRootIsRefused) { expectRefused(link("/", "text")); }
TEST_F(InstallComponentsHostilePath, APathThatIsNoTextIsRefused) {
  expectRefused(file("/x", "content").with(deployer::kManifestFilePath, 7));
}
TEST_F(InstallComponentsHostilePath, AnEmptyPathIsRefused) { expectRefused(directory("", attributes(0700, 501, 20))); }
TEST_F(InstallComponentsHostilePath, APathOfDotsIsRefused) {
  expectRefused(directory("/./.", attributes(0700, 501, 20)));
}
TEST_F(InstallComponentsHostilePath, APathThatClimbsIsRefused) {
  expectRefused(file("/a/../../escaped", "content"));
  EXPECT_FALSE(exists(path("escaped")));
}
TEST_F(InstallComponentsHostilePath, APathWithANulIsRefused) {
  describe("Core", {});
  step_ = makeStep<Step>({"Core"});
  const CapturedLog log;
  EXPECT_FALSE(
      step_->copyFileWithManifestInfo(deployer::FileEntry(file(std::string_view("/tool\0.txt", 10), "content")), "Core",
                                      run().installerRootPath(), target(), {}));
  EXPECT_EQ(log.texts("Error").size(), 1U);
  EXPECT_FALSE(exists(target("/tool")));
}
TEST_F(InstallComponentsHostilePath, ANameBeyondTheSystemsLimitFailsTheCallThatIsMadeWithIt) {
  const std::string name(300, 'n');
  expectOnlyError(file("/" + name, "content"), "Error writing: Error Domain=NSCocoaErrorDomain Code=514 ",
                  " (" + target("/" + name) + ")");
  expectOnlyError(file("/" + name + "/file", "content"), "error: Error Domain=NSCocoaErrorDomain Code=514 ");
  expectOnlyError(directory("/" + name), "error: Error Domain=NSCocoaErrorDomain Code=514 ");
  expectOnlyError(externalDirectory("/" + name, path("nowhere")), "error: Error Domain=NSCocoaErrorDomain Code=514 ");
}
TEST_F(InstallComponentsHostilePath, ANameOfALinkBeyondTheSystemsLimitFailsItsMaking) {
  const std::string place = "/" + std::string(300, 'n');
  const CapturedLog log;
  EXPECT_FALSE(install({link(place, "text"), link("/later", "text")}));
  EXPECT_EQ(state(), deployer::QVNInstallerStateFailed);
  const auto errors = log.texts("Error");
  ASSERT_EQ(errors.size(), 2U);
  EXPECT_TRUE(errors[0].starts_with("Failed to create symbolic link: text\nError Domain=NSCocoaErrorDomain Code=514 "))
      << errors[0];
  EXPECT_EQ(errors[1], "Unable to set attributes on symbolic file: " + target(place));
  EXPECT_TRUE(exists(target("/later")));
}
TEST_F(InstallComponentsHostilePath, APathBeyondTheSystemsLimitFailsTheCallThatIsMadeWithIt) {
  std::string deep;
  for (int level = 0; level < 600; ++level) {
    deep += "/folder-" + std::to_string(level);
  }
  expectOnlyError(file(deep, "content"), "error: Error Domain=NSCocoaErrorDomain Code=514 ");
  EXPECT_FALSE(exists(target("/folder-0")));
  expectOnlyError(directory(deep), "error: Error Domain=NSCocoaErrorDomain Code=514 ");
  EXPECT_FALSE(exists(target("/folder-0")));
}

TEST_F(InstallComponentsHostilePath, AChecksumNeverLeavesThePayload) {
  writeFile(path("secret"), "secret");
  const std::string climbing = "../../../../../secret";
  const CapturedLog log;
  EXPECT_FALSE(install({fileWithChecksum("/tool", climbing)}));
  EXPECT_EQ(log.texts("Error"), std::vector<std::string>{"path doesn't exist at " + payload() + "/" + climbing});
  EXPECT_FALSE(exists(target("/tool")));
}

TEST_F(InstallComponentsHostilePath, EntriesThatAreNoDictionariesAreRefused) { expectRefused(PropertyList("entry")); }

}  // namespace
