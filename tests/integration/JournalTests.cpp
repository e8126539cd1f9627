#include <sys/stat.h>
#include <sys/syscall.h>

#include <string>
#include <string_view>

#include "InstallationDeployer/ManifestKeys.h"
#include "general/foundation/propertylist/PropertyListFile.h"
#include "tests/integration/PairInRoot.h"
#include "tests/support/KilledRun.h"
#include "tests/support/Snapshot.h"

namespace tests {
namespace {

namespace plist = foundation::plist;

constexpr const char* kFolder = "/var/db/com.corvane.installer";
constexpr const char* kJournal = "/var/db/com.corvane.installer/Guard.journal";
constexpr const char* kDamagedJournal = "/var/db/com.corvane.installer/Guard.journal.damaged";
constexpr const char* kReceiptOfCore =
    "/Library/Application Support/Corvane/Guard/Installer.app/Contents/Install/Manifests/Core.plist";

/// What the journal of an interrupted run means to the next one.
class JournalOfARun : public PairInRoot {
 protected:
  void failAnUpgrade() {
    machine().begin(Start::First);
    root().writeFile(ProductPair::kProgramFails, "");
    EXPECT_EQ(machine().install(Version::Second).exitCode, 1);
    ASSERT_TRUE(root().shell("rm " + std::string(ProductPair::kProgramFails)).succeeded());
    ASSERT_TRUE(root().exists(kJournal));
  }
  /// As if an engine that knows nothing of journals had installed another version.
  void changeInstalledVersion() {
    const std::string old = root().readFile(kReceiptOfCore);
    const auto manifest = plist::parse(std::string_view(old)).value();
    root().writeFile(
        kReceiptOfCore,
        plist::serialize(manifest.with(deployer::kManifestComponentVersion, "0.9"), plist::Format::Xml).value(), 0644,
        0, 80);
  }
};

TEST_F(JournalOfARun, CanBeLookedAtByRootAlone) {
  failAnUpgrade();
  const auto found = root().snapshot(kFolder);
  ASSERT_EQ(found.size(), 2U) << listing(found);
  EXPECT_EQ(found[0].mode, 0700U);
  EXPECT_EQ(found[1].path, kJournal);
  EXPECT_EQ(found[1].mode, 0600U);
  EXPECT_EQ(found[1].user, 0U);
}

TEST_F(JournalOfARun, TellsTheNextRunHowFarItHadCome) {
  failAnUpgrade();
  const auto outcome = machine().install(Version::Second);
  EXPECT_EQ(outcome.exitCode, 0) << errorsOf(outcome);
  EXPECT_NE(outcome.standardError.find("The install of \"Guard\" by process "), std::string::npos);
  EXPECT_NE(outcome.standardError.find(" had removed ("), std::string::npos) << outcome.standardError;
  EXPECT_NE(outcome.standardError.find(", installed (Core)"), std::string::npos);
  EXPECT_FALSE(root().exists(kJournal));
}

TEST_F(JournalOfARun, IsDroppedWhenAnotherEngineHasChangedTheProductSince) {
  failAnUpgrade();
  const std::string journal = root().readFile(kJournal);
  ASSERT_EQ(machine().install(Version::First).exitCode, 0);
  changeInstalledVersion();
  root().writeFile(kJournal, journal, 0600);
  const auto outcome = machine().install(Version::Second);
  EXPECT_EQ(outcome.exitCode, 0) << errorsOf(outcome);
  EXPECT_NE(outcome.standardError.find("Another engine has changed the product since, so its journal is dropped."),
            std::string::npos);
  EXPECT_FALSE(root().exists(kJournal));
}

TEST_F(JournalOfARun, ThatMakesNoSenseIsSetAsideAndEverythingThatIsKnownIsPutRight) {
  failAnUpgrade();
  root().writeFile(kJournal, "nonsense", 0600);
  machine().keep("left");
  const auto outcome = machine().install(Version::Second);
  EXPECT_EQ(outcome.exitCode, 0) << errorsOf(outcome);
  EXPECT_NE(errorsOf(outcome).find(kDamagedJournal), std::string::npos);
  EXPECT_EQ(root().readFile(kDamagedJournal), "nonsense");
  ASSERT_TRUE(root().shell(std::string("rm ") + kDamagedJournal).succeeded());
  EXPECT_EQ(machine().whatIsWrong(Start::First, Way::Second, Story::Disturbed), "");
  machine().putBack("left");
  EXPECT_EQ(machine().remove().exitCode, 0);
  EXPECT_FALSE(machine().hasReceipt());
}

TEST_F(JournalOfARun, ThatMakesNoSenseLeavesTheCopiesOfAnotherProductWhereTheyAre) {
  const std::string copy = "/Library/Caches/com.corvane.installer/tmp/Library/Other/settings";
  machine().begin(Start::First);
  root().writeFile(kJournal, "nonsense", 0600);
  root().writeFile(std::string(kFolder) + "/Other.journal", "nonsense", 0600);
  root().writeFile(copy, "of the user");
  ASSERT_EQ(chmod(root().path(kFolder).c_str(), 0700), 0);
  const auto outcome = machine().remove();
  EXPECT_EQ(outcome.exitCode, 0) << errorsOf(outcome);
  EXPECT_FALSE(root().exists(kJournal));
  EXPECT_EQ(root().readFile(copy), "of the user");
}

TEST_F(JournalOfARun, ThatMakesNoSenseStaysWhileNobodyCanTellWhichFilesWait) {
  failAnUpgrade();
  root().writeFile(kJournal, "nonsense", 0600);
  ASSERT_TRUE(root().shell("mv /Library/Caches /Library/kept && ln -s Caches /Library/Caches").succeeded());
  const auto outcome = machine().install(Version::Second);
  EXPECT_EQ(outcome.exitCode, 1) << errorsOf(outcome);
  EXPECT_NE(errorsOf(outcome).find("Unable to tell which files wait in the cache. Error Domain="), std::string::npos)
      << errorsOf(outcome);
  EXPECT_EQ(root().readFile(kJournal), "nonsense");
  ASSERT_TRUE(root().shell("rm /Library/Caches && mv /Library/kept /Library/Caches").succeeded());
  EXPECT_EQ(machine().install(Version::Second).exitCode, 0);
  EXPECT_FALSE(root().exists(kJournal));
}

TEST_F(JournalOfARun, OfARemovalAndItsReceiptOutliveWhatTheyStandForUntilItIsGoneFromTheDisk) {
  if (const auto reason = support::KilledRun::whyImpossible()) {
    GTEST_SKIP() << *reason;
  }
  machine().begin(Start::First);
  machine().keep("installed");
  support::KillMoment flush;
  flush.calls = {SYS_syncfs};
  ASSERT_TRUE(support::KilledRun::run(root(), PairMachine::removeCommand(), flush).reached);
  EXPECT_FALSE(root().exists(ProductPair::kTool));
  EXPECT_TRUE(machine().hasReceipt());
  machine().putBack("installed");
  flush.number = 3;
  ASSERT_TRUE(support::KilledRun::run(root(), PairMachine::removeCommand(), flush).reached);
  EXPECT_FALSE(machine().hasReceipt());
  EXPECT_TRUE(machine().hasJournal());
}

TEST_F(JournalOfARun, OfARemovalIsFollowedByAReceiptThatIsPutAsideOnTheDiskBeforeAnyOfItGoes) {
  if (const auto reason = support::KilledRun::whyImpossible()) {
    GTEST_SKIP() << *reason;
  }
  machine().begin(Start::First);
  machine().keep("installed");
  const std::string count = "cd '/Library/Application Support/Corvane' && find . -path '*/Installer.app/*' | wc -l";
  const std::string whole = root().shell(count).standardOutput;
  bool wasPutAside = false;
  support::KillMoment flush;
  flush.calls = {SYS_fsync};
  for (flush.number = 1; support::KilledRun::run(root(), PairMachine::removeCommand(), flush).reached; ++flush.number) {
    if (!machine().hasReceipt()) {
      wasPutAside = wasPutAside || root().shell(count).standardOutput == whole;
    }
    machine().putBack("installed");
  }
  EXPECT_TRUE(wasPutAside);
}

TEST_F(JournalOfARun, ThatCannotBeWrittenLeavesTheMachineAsItIs) {
  machine().begin(Start::First);
  root().makeDirectory(kFolder, 0755);
  ASSERT_EQ(chmod(root().path(kFolder).c_str(), 0755), 0);
  const auto before = root().snapshot("/Library");
  const auto outcome = machine().install(Version::Second);
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_NE(errorsOf(outcome).find(kJournal), std::string::npos);
  EXPECT_EQ(difference(root().snapshot("/Library"), before), "");
}

}  // namespace
}  // namespace tests
