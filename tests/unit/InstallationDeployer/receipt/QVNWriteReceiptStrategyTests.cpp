#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "InstallationDeployer/receipt/QVNWriteReceiptStrategy.h"
#include "tests/support/StepTest.h"
#include "tests/support/Unprivileged.h"

namespace {

using deployer::QVNWriteReceiptStrategy;
using foundation::FileAttributes;
using tests::CapturedLog;

/// The parts of the step that work on any folder. What it does at the receipt location is tested in a private root.
class WriteReceipt : public tests::StepTest {
 protected:
  WriteReceipt() : step_(makeStep<QVNWriteReceiptStrategy>({"Core"})) {
    std::filesystem::create_directory(copy());
    files_ = FileAttributes{geteuid(), getegid(), 0644};
    folders_ = FileAttributes{geteuid(), getegid(), 0755};
  }

  std::string copy() const { return path("copy"); }
  bool copyBundle(bool withoutPayload) {
    return step_->copySourceDirectoryContents(bundle(), copy(), files_, folders_, withoutPayload);
  }
  bool copyOne(const std::string& relative, bool isDirectory = false) {
    return step_->copyFile(relative, bundle(), copy(), files_, folders_, isDirectory);
  }
  bool receiptFolderExists() { return std::filesystem::exists(run().configuration().receiptDirectory()); }

  std::unique_ptr<QVNWriteReceiptStrategy> step_;
  FileAttributes files_;
  FileAttributes folders_;
};

TEST_F(WriteReceipt, AnEmptyPlanWritesNoReceiptAndSucceeds) {
  const auto step = makeStep<QVNWriteReceiptStrategy>({});
  const CapturedLog log;
  EXPECT_TRUE(step->execute(true));
  EXPECT_FALSE(receiptFolderExists());
  EXPECT_EQ(step->installerState(), deployer::QVNInstallerStateSuccess);
}

TEST_F(WriteReceipt, AStepWithoutAPlanWritesNoReceiptAndSucceeds) {
  QVNWriteReceiptStrategy step({}, "step", nullptr, run(), nullptr);
  const CapturedLog log;
  EXPECT_TRUE(step.execute(true));
  EXPECT_FALSE(receiptFolderExists());
}

TEST_F(WriteReceipt, RunningFromTheReceiptLocationSucceedsWithoutWritingAReceipt) {
  run().configuration().setBundlePath(run().configuration().receiptDirectory() + "/Installer.app");
  const CapturedLog log;
  EXPECT_TRUE(step_->execute(true));
  EXPECT_FALSE(receiptFolderExists());
  EXPECT_EQ(log.count("Debug", "Receipt running as installer. WriteReceipt will not update the receipt."), 1U);
}

TEST_F(WriteReceipt, NothingUnderThePayloadIsCopiedWhenItIsExcludedButItsFolderIs) {
  writeFile(bundle() + "/Contents/Install/Root/Core/abc", "payload");
  writeFile(bundle() + "/Contents/Info.plist", "info");
  const CapturedLog log;
  EXPECT_TRUE(copyBundle(true));
  EXPECT_TRUE(std::filesystem::is_directory(copy() + "/Contents/Install/Root"));
  EXPECT_TRUE(std::filesystem::is_empty(copy() + "/Contents/Install/Root"));
  EXPECT_EQ(contentOf(copy() + "/Contents/Info.plist"), "info");
}

TEST_F(WriteReceipt, ThePayloadIsCopiedWhenItIsNotExcluded) {
  writeFile(bundle() + "/Contents/Install/Root/Core/abc", "payload");
  const CapturedLog log;
  EXPECT_TRUE(copyBundle(false));
  EXPECT_EQ(contentOf(copy() + "/Contents/Install/Root/Core/abc"), "payload");
}

TEST_F(WriteReceipt, FoldersWhoseNameBeginsLikeThePayloadsAreLeftEmptyToo) {
  writeFile(bundle() + "/Contents/Install/RootExtra/file", "x");
  writeFile(bundle() + "/Contents/Install/Roo/file", "x");
  const CapturedLog log;
  EXPECT_TRUE(copyBundle(true));
  EXPECT_TRUE(std::filesystem::is_empty(copy() + "/Contents/Install/RootExtra"));
  EXPECT_TRUE(std::filesystem::exists(copy() + "/Contents/Install/Roo/file"));
}

TEST_F(WriteReceipt, ABundleWithoutAPayloadIsCopied) {
  writeFile(bundle() + "/Contents/MacOS/Installer", "front end");
  const CapturedLog log;
  EXPECT_TRUE(copyBundle(true));
  EXPECT_EQ(contentOf(copy() + "/Contents/MacOS/Installer"), "front end");
  EXPECT_FALSE(std::filesystem::exists(copy() + "/Contents/Install/Root"));
}

TEST_F(WriteReceipt, ABundlePathWithTrailingSlashesIsCopiedToTheSamePlaces) {
  writeFile(bundle() + "/Contents/Info.plist", "info");
  writeFile(bundle() + "/Contents/Install/Root/Core/abc", "payload");
  const CapturedLog log;
  EXPECT_TRUE(step_->copySourceDirectoryContents(bundle() + "//", copy(), files_, folders_, true));
  EXPECT_EQ(contentOf(copy() + "/Contents/Info.plist"), "info");
  EXPECT_TRUE(std::filesystem::is_empty(copy() + "/Contents/Install/Root"));
}

TEST_F(WriteReceipt, ModesOfCopiesDependNeitherOnTheSourceNorOnTheUmask) {
  writeFile(bundle() + "/Contents/secret", "x", 0600);
  writeFile(bundle() + "/Contents/tool", "x", 04777);
  ASSERT_EQ(chmod((bundle() + "/Contents").c_str(), 0700), 0);
  for (const mode_t mask : {0000U, 0077U, 0777U}) {
    std::filesystem::remove_all(copy());
    std::filesystem::create_directory(copy());
    const CapturedLog log;
    const mode_t before = umask(mask);
    const bool copied = copyBundle(true);
    umask(before);
    EXPECT_TRUE(copied);
    EXPECT_EQ(modeOf(copy() + "/Contents"), 0755U);
    EXPECT_EQ(modeOf(copy() + "/Contents/secret"), 0644U);
    EXPECT_EQ(modeOf(copy() + "/Contents/tool"), 0644U);
  }
}

TEST_F(WriteReceipt, LinksAreLeftOut) {
  writeFile(bundle() + "/Contents/file", "x");
  std::filesystem::create_symlink("file", bundle() + "/Contents/link");
  std::filesystem::create_directory_symlink("/", bundle() + "/Contents/everything");
  const CapturedLog log;
  EXPECT_TRUE(copyBundle(true));
  EXPECT_TRUE(std::filesystem::exists(copy() + "/Contents/file"));
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(copy() + "/Contents/link")));
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(copy() + "/Contents/everything")));
}

TEST_F(WriteReceipt, AnEmptyFileIsCopied) {
  writeFile(bundle() + "/empty", "");
  EXPECT_TRUE(copyOne("/empty"));
  EXPECT_TRUE(std::filesystem::is_empty(copy() + "/empty"));
}

TEST_F(WriteReceipt, AShortFileAfterALongOneKeepsNothingOfIt) {
  writeFile(bundle() + "/a", std::string(300000, 'a'));
  writeFile(bundle() + "/b", "b");
  const CapturedLog log;
  EXPECT_TRUE(copyBundle(true));
  EXPECT_EQ(contentOf(copy() + "/a"), std::string(300000, 'a'));
  EXPECT_EQ(contentOf(copy() + "/b"), "b");
}

TEST_F(WriteReceipt, APipeInTheBundleIsAnErrorAndIsNotWaitedFor) {
  ASSERT_EQ(mkfifo((bundle() + "/pipe").c_str(), 0644), 0);
  const CapturedLog log;
  EXPECT_FALSE(copyBundle(true));
  EXPECT_TRUE(mentions(log, "<Error>: error: Error Domain=")) << log.text();
  EXPECT_TRUE(mentions(log, " (" + bundle() + "/pipe)\n"));
  EXPECT_EQ(step_->installerState(), deployer::QVNInstallerStateFailed);
  EXPECT_FALSE(std::filesystem::exists(copy() + "/pipe"));
}

TEST_F(WriteReceipt, AFileThatCannotBeReadIsAnErrorThatNamesTheSource) {
  const CapturedLog log;
  EXPECT_FALSE(copyOne("/none"));
  EXPECT_TRUE(mentions(log, "<Error>: error: Error Domain=NSCocoaErrorDomain Code=260 ")) << log.text();
  EXPECT_TRUE(mentions(log, " (" + bundle() + "/none)\n"));
  EXPECT_EQ(step_->installerState(), deployer::QVNInstallerStateFailed);
}

TEST_F(WriteReceipt, AFileThatCannotBeWrittenIsAnErrorThatNamesTheDestination) {
  writeFile(bundle() + "/sub/file", "x");
  const CapturedLog log;
  EXPECT_FALSE(copyOne("/sub/file"));
  EXPECT_TRUE(mentions(log, "<Error>: error writing: Error Domain=NSCocoaErrorDomain Code=4 ")) << log.text();
  EXPECT_TRUE(mentions(log, " (" + copy() + "/sub/file)\n"));
  EXPECT_EQ(step_->installerState(), deployer::QVNInstallerStateFailed);
}

TEST_F(WriteReceipt, AFolderThatCannotBeCreatedIsAnErrorThatNamesTheDestination) {
  writeFile(copy() + "/taken", "a file");
  const CapturedLog log;
  EXPECT_FALSE(copyOne("/taken", true));
  EXPECT_TRUE(mentions(log, "<Error>: error creating directory: Error Domain=")) << log.text();
  EXPECT_TRUE(mentions(log, " (" + copy() + "/taken)\n"));
  EXPECT_EQ(step_->installerState(), deployer::QVNInstallerStateFailed);
}

TEST_F(WriteReceipt, AttributesThatCannotBeSetAreAnErrorThatNamesTheDestination) {
  writeFile(bundle() + "/file", "x");
  for (const std::string& folder : {path(""), bundle(), copy()}) {
    ASSERT_EQ(chmod(folder.c_str(), 0777), 0);
  }
  files_.owner = 0;
  const CapturedLog log;
  {
    const tests::Unprivileged nobody;
    ASSERT_TRUE(nobody.changed());
    EXPECT_FALSE(copyOne("/file"));
  }
  EXPECT_TRUE(mentions(log, "<Error>: Unable to set attributes on file: " + copy() + "/file\n\tError Domain="))
      << log.text();
  EXPECT_EQ(step_->installerState(), deployer::QVNInstallerStateFailed);
}

TEST_F(WriteReceipt, AFailureInAFolderIsLoggedAndTheCopyGoesOnBesideIt) {
  ASSERT_TRUE(std::filesystem::create_directories(bundle() + "/a"));
  ASSERT_EQ(mkfifo((bundle() + "/a/pipe").c_str(), 0644), 0);
  writeFile(bundle() + "/b", "b");
  const CapturedLog log;
  EXPECT_TRUE(copyBundle(true));
  EXPECT_EQ(contentOf(copy() + "/b"), "b");
  EXPECT_EQ(step_->installerState(), deployer::QVNInstallerStateFailed);
}

TEST_F(WriteReceipt, AFolderThatCannotBeListedIsLoggedAndTheCopyGoesOnBesideIt) {
  writeFile(bundle() + "/closed/file", "x");
  writeFile(bundle() + "/open", "x");
  for (const std::string& folder : {path(""), bundle(), copy()}) {
    ASSERT_EQ(chmod(folder.c_str(), 0777), 0);
  }
  ASSERT_EQ(chmod((bundle() + "/closed").c_str(), 0700), 0);
  files_ = folders_ = {};
  folders_.permissions = 0755;
  const CapturedLog log;
  {
    const tests::Unprivileged nobody;
    ASSERT_TRUE(nobody.changed());
    EXPECT_TRUE(copyBundle(true));
  }
  EXPECT_TRUE(mentions(log, "<Error>: Unable to read directory contents. Error Domain=")) << log.text();
  EXPECT_TRUE(mentions(log, "NSFilePath=" + bundle() + "/closed,")) << log.text();
  EXPECT_EQ(contentOf(copy() + "/open"), "x");
}

TEST_F(WriteReceipt, NothingStagedIsNoReceiptThatMayBePublished) {
  writeIndex(std::vector<std::string>{"Core"});
  const CapturedLog log;
  EXPECT_FALSE(step_->validateContents());
  EXPECT_TRUE(
      mentions(log, "Receipt incomplete. It does not hold the bundle's Contents/Install/Manifests/Index.plist: "))
      << log.text();
  EXPECT_EQ(step_->installerState(), deployer::QVNInstallerStateFailed);
}

TEST_F(WriteReceipt, AfterAManifestThatCouldNotBeReadNoReceiptIsWritten) {
  std::filesystem::create_directories(run().manifest().getPathForComponent("Core"));
  const CapturedLog log;
  EXPECT_FALSE(run().manifest().canRead({"Core"}));
  EXPECT_FALSE(step_->execute(true));
  EXPECT_EQ(step_->installerState(), deployer::QVNInstallerStateFailed);
  EXPECT_FALSE(receiptFolderExists());
  const auto idle = makeStep<QVNWriteReceiptStrategy>({});
  EXPECT_FALSE(idle->execute(true)) << "a run with nothing to do does not know that there is nothing";
}

}  // namespace
