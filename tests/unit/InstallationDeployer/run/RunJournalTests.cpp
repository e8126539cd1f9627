#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "InstallationDeployer/QVNInstallerChecksum.h"
#include "InstallationDeployer/journal/JournalStore.h"
#include "InstallationDeployer/run/RunJournal.h"
#include "tests/support/StepTest.h"

namespace {

using deployer::ChangeJournal;
using deployer::JournaledManifest;
using deployer::JournalStore;
using deployer::RunJournal;
using tests::CapturedLog;
using tests::mentions;
using Names = std::vector<std::string>;
namespace fs = std::filesystem;

class RunJournalTest : public tests::StepTest {
 protected:
  void SetUp() override {
    writeIndex(Names{"Core", "Tools"});
    writeComponent("Core", withVersion("1.1", {directory(path("product")), entry(path("product/core"), {})}));
    writeComponent("Tools", withVersion("2", {entry(path("product/tool"), {})}));
  }
  static PropertyList withVersion(const std::string& version, Entries entries) {
    return manifestOf(std::move(entries)).with(deployer::kManifestComponentVersion, version);
  }
  [[nodiscard]] JournalStore store() const { return JournalStore(path("journals")); }
  [[nodiscard]] ChangeJournal onDisk() const { return store().read(product_).value().value(); }
  [[nodiscard]] bool isOnDisk() const { return fs::exists(store().pathFor(product_)); }
  std::unique_ptr<RunJournal> makeJournal() {
    return std::make_unique<RunJournal>(run().configuration(), run().manifest(), store());
  }
  /// What a first install leaves that is killed after its beginning.
  void interruptAnInstall() {
    const auto journal = makeJournal();
    ASSERT_TRUE(journal->open());
    ASSERT_TRUE(journal->begin({"Core"}));
  }
};

TEST_F(RunJournalTest, IsOnTheDiskBeforeAFirstInstallChangesAnything) {
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open());
  EXPECT_FALSE(isOnDisk());
  ASSERT_TRUE(journal->begin({"Core"}));
  const ChangeJournal written = onDisk();
  EXPECT_EQ(written.operation, ChangeJournal::Operation::Install);
  EXPECT_EQ(written.bundlePath, bundle());
  EXPECT_EQ(written.process, getpid());
  EXPECT_TRUE(written.versionsBefore.isNil());
  EXPECT_EQ(written.versionsAfter, records({{"Core", "1.1"}, {"Tools", "2"}}));
  ASSERT_EQ(written.components(), (Names{"Core", "Tools"})) << "a first install puts all in place";
  EXPECT_EQ(written.manifests[0].content(), run().manifest().getManifestForComponent("Core"));
  EXPECT_EQ(written.manifests[0].role, JournaledManifest::Role::Placed);
  EXPECT_TRUE(written.manifests[0].withModifiableFiles);
}

TEST_F(RunJournalTest, OfAnUpgradeNamesOnlyWhatIsPlanned) {
  run().configuration().setHasInstallerReceipt(true);
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open());
  journal->noteInstalled(records({{"Core", "1.0"}, {"Tools", "2"}}));
  ASSERT_TRUE(journal->begin({"Core"}));
  EXPECT_EQ(onDisk().components(), Names{"Core"});
  EXPECT_EQ(onDisk().versionsBefore, records({{"Core", "1.0"}, {"Tools", "2"}}));
  EXPECT_FALSE(onDisk().manifests[0].withModifiableFiles);
}

TEST_F(RunJournalTest, OfAnUpgradeWithNothingToDoIsNeverWritten) {
  run().configuration().setHasInstallerReceipt(true);
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open());
  ASSERT_TRUE(journal->begin({}));
  journal->note("stopped", {});
  EXPECT_FALSE(isOnDisk());
  EXPECT_TRUE(journal->finish());
}

TEST_F(RunJournalTest, OfARemovalNamesWhatGoesForGood) {
  run().configuration().setInstall(false);
  run().configuration().setRemove(true);
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open());
  ASSERT_TRUE(journal->begin({"Core", "Tools"}));
  EXPECT_EQ(onDisk().operation, ChangeJournal::Operation::Remove);
  EXPECT_EQ(onDisk().versionsBefore, records({{"Core", "1.1"}, {"Tools", "2"}}));
  EXPECT_TRUE(onDisk().versionsAfter.isNil());
  EXPECT_EQ(onDisk().manifests[0].role, JournaledManifest::Role::Removed);
  EXPECT_TRUE(onDisk().manifests[0].withModifiableFiles);
}

TEST_F(RunJournalTest, OfAReceiptIsNeverWritten) {
  run().configuration().setInstall(false);
  run().configuration().setReceipt(true);
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open());
  ASSERT_TRUE(journal->begin({"Core"}));
  EXPECT_FALSE(isOnDisk());
}

TEST_F(RunJournalTest, KeepsItsNotesUntilThereIsMoreToChange) {
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->begin({"Core"}));
  journal->note("stopped", {"Core"});
  ASSERT_TRUE(journal->begin({"Core", "Tools"}));
  ASSERT_EQ(onDisk().notes.size(), 1U);
  EXPECT_EQ(onDisk().notes[0].what, "stopped");
  writeComponent("Another", withVersion("1", {}));
  ASSERT_TRUE(journal->begin({"Another"}));
  EXPECT_EQ(onDisk().components(), (Names{"Core", "Tools", "Another"}));
}

TEST_F(RunJournalTest, GoesWhenTheRunIsOver) {
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->begin({"Core"}));
  EXPECT_TRUE(journal->finish());
  EXPECT_FALSE(isOnDisk());
}

TEST_F(RunJournalTest, ThatCannotBeWrittenForbidsEveryChange) {
  fs::create_directories(path("journals"));
  ASSERT_EQ(chmod(path("journals").c_str(), 0777), 0);
  const CapturedLog log;
  const auto journal = makeJournal();
  EXPECT_FALSE(journal->begin({"Core"}));
  EXPECT_TRUE(mentions(log, "Unable to write the journal " + store().pathFor(product_)));
}

TEST_F(RunJournalTest, WithoutAManifestThatCannotBeReadForbidsEveryChange) {
  fs::create_directories(run().manifest().getPathForComponent("Folder"));
  const CapturedLog log;
  EXPECT_FALSE(makeJournal()->begin({"Folder"}));
  EXPECT_TRUE(mentions(log, "Failed to read manifest for Folder."));
  EXPECT_FALSE(isOnDisk());
}

TEST_F(RunJournalTest, OfAnInterruptedRunMakesItsComponentsCountAsDamaged) {
  interruptAnInstall();
  const CapturedLog log;
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open());
  EXPECT_EQ(journal->damagedComponents(), (Names{"Core", "Tools"}));
  EXPECT_EQ(log.texts("Notice").size(), 1U);
  EXPECT_TRUE(mentions(log, "was interrupted"));
}

TEST_F(RunJournalTest, OfAnInterruptedRunMakesComponentsCountAsDamagedThatShareAFile) {
  writeIndex(Names{"Core", "Tools", "Sharing"});
  writeComponent("Sharing", withVersion("1", {directory(path("product")), entry(path("product/core"), {})}));
  run().configuration().setHasInstallerReceipt(true);
  {
    const auto upgrade = makeJournal();
    upgrade->noteInstalled(array({}));
    ASSERT_TRUE(upgrade->begin({"Core"}));
  }
  const CapturedLog log;
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open());
  EXPECT_EQ(journal->damagedComponents(), (Names{"Core", "Sharing"})) << "Tools only has its folder in common";
}

TEST_F(RunJournalTest, TakesAwayWhatAnInterruptedRunLeftOnceItIsWrittenDownAnew) {
  interruptAnInstall();
  writeFile(path("product/core"), "half changed");
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open());
  EXPECT_TRUE(fs::exists(path("product/core"))) << "nothing is changed by looking";
  ASSERT_TRUE(journal->begin({}));
  EXPECT_FALSE(fs::exists(path("product")));
  EXPECT_EQ(onDisk().components(), (Names{"Core", "Tools"}));
  EXPECT_TRUE(journal->finish());
  EXPECT_FALSE(isOnDisk());
}

TEST_F(RunJournalTest, HandsOnWhatItFoundWhenItIsInterruptedItself) {
  interruptAnInstall();
  writeIndex(Names{"Core"});
  writeComponent("Core", withVersion("1.2", {entry(path("product/renamed"), {})}));
  {
    const auto next = makeJournal();
    ASSERT_TRUE(next->open());
    ASSERT_TRUE(next->begin({"Core"}));
  }
  writeFile(path("product/core"), "of the first");
  writeFile(path("product/renamed"), "of the second");
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open());
  ASSERT_TRUE(journal->begin({}));
  EXPECT_FALSE(fs::exists(path("product")));
}

TEST_F(RunJournalTest, ThatWasOnlyLeftBehindIsDropped) {
  run().configuration().setInstall(false);
  run().configuration().setRemove(true);
  ASSERT_TRUE(makeJournal()->begin({"Core"}));
  run().configuration().setInstall(true);
  run().configuration().setRemove(false);
  // A removal without a receipt had come to its end.
  const CapturedLog log;
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open());
  EXPECT_TRUE(mentions(log, "Only its journal was left"));
  EXPECT_EQ(log.texts("Notice").size(), 1U);
  EXPECT_TRUE(journal->damagedComponents().empty());
  EXPECT_FALSE(isOnDisk());
}

TEST_F(RunJournalTest, ThatMakesNoSenseIsSetAsideAndEverythingCountsAsDamaged) {
  interruptAnInstall();
  std::ofstream(store().pathFor(product_)) << "nonsense";
  const CapturedLog log;
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open());
  EXPECT_TRUE(mentions(log, store().pathFor(product_) + ".damaged"));
  EXPECT_EQ(log.texts("Error").size(), 1U);
  EXPECT_EQ(journal->damagedComponents(), (Names{"Core", "Tools"}));
  EXPECT_TRUE(fs::exists(store().pathFor(product_) + ".damaged"));
}

TEST_F(RunJournalTest, ThatMakesNoSenseIsNotForgottenByARunThatChangesNothing) {
  interruptAnInstall();
  std::ofstream(store().pathFor(product_)) << "nonsense";
  ASSERT_TRUE(makeJournal()->open());
  const CapturedLog log;
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open());
  EXPECT_TRUE(mentions(log, "was interrupted."));
  EXPECT_EQ(journal->damagedComponents(), (Names{"Core", "Tools"}));
}

TEST_F(RunJournalTest, ThatCannotBeReadFailsTheRun) {
  fs::create_directories(store().pathFor(product_));
  const CapturedLog log;
  EXPECT_FALSE(makeJournal()->open());
  EXPECT_TRUE(mentions(log, "Unable to read the journal " + store().pathFor(product_)));
}

TEST_F(RunJournalTest, OfTheRunThatThisOneIsAPartOfStaysAsItIs) {
  interruptAnInstall();
  writeFile(path("product/core"), "just installed by the outer run");
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open(getpid()));
  EXPECT_TRUE(journal->damagedComponents().empty());
  ASSERT_TRUE(journal->begin({"Core"}));
  EXPECT_TRUE(journal->finish());
  EXPECT_TRUE(isOnDisk());
  EXPECT_TRUE(fs::exists(path("product/core")));
}

TEST_F(RunJournalTest, OfAnEarlierRunIsPutRightByTheRunThatIsAPartOfAnotherOne) {
  interruptAnInstall();
  const CapturedLog log;
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open(getppid()));
  EXPECT_EQ(journal->damagedComponents(), (Names{"Core", "Tools"}));
}

TEST_F(RunJournalTest, OfAnEarlierProcessWithTheNumberOfTheOuterRunIsPutRight) {
  interruptAnInstall();
  ChangeJournal earlier = onDisk();
  earlier.processStart = earlier.processStart.value() - 1;
  ASSERT_TRUE(store().write(earlier).ok());
  const CapturedLog log;
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open(getpid()));
  EXPECT_EQ(journal->damagedComponents(), (Names{"Core", "Tools"}));
}

TEST_F(RunJournalTest, RemembersThatAnUpdateIsContinued) {
  run().configuration().setTreatAsUpdate(true);
  interruptAnInstall();
  run().configuration().setTreatAsUpdate(false);
  const auto journal = makeJournal();
  EXPECT_FALSE(journal->continuesUpdate());
  ASSERT_TRUE(journal->open());
  EXPECT_TRUE(journal->continuesUpdate());
}

TEST_F(RunJournalTest, HandsOnTheFilesThatAreOwedToTheUser) {
  {
    const auto journal = makeJournal();
    journal->noteOwedFile(path("settings"), false);
    journal->noteOwedFile(path("more"), true);
    journal->noteOwedFile(path("settings"), false);
    ASSERT_TRUE(journal->begin({"Core"}));
  }
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open());
  EXPECT_EQ(journal->owedFiles(), (Names{path("settings"), path("more")}));
}

TEST_F(RunJournalTest, LetsFilesBeWrittenThatAnInterruptedRemovalTook) {
  const Keys modifiable{{std::string(deployer::kManifestIsModifiableFile), true}};
  writeComponent("Core", withVersion("1.1", {entry(path("taken"), modifiable), entry(path("left"), modifiable)}));
  writeFile(path("left"), "edited");
  run().configuration().setInstall(false);
  run().configuration().setRemove(true);
  run().configuration().setHasInstallerReceipt(true);
  const ChangeJournal removal = [this] {
    EXPECT_TRUE(makeJournal()->begin({"Core"}));
    return onDisk();
  }();
  run().configuration().setInstall(true);
  run().configuration().setRemove(false);
  run().configuration().setHasInstallerReceipt(false);
  ChangeJournal interrupted = removal;
  interrupted.operation = ChangeJournal::Operation::Install;
  ASSERT_TRUE(store().write(interrupted).ok());
  const auto journal = makeJournal();
  ASSERT_TRUE(journal->open());
  ASSERT_TRUE(journal->begin({}));
  EXPECT_TRUE(journal->modifiableFilesToWrite().contains(path("taken")));
  EXPECT_FALSE(journal->modifiableFilesToWrite().contains(path("left")));
}

}  // namespace
