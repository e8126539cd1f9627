#include <gtest/gtest.h>

#include "InstallationDeployer/run/InterruptedRunRecovery.h"
#include "tests/support/PropertyLists.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/InstallationDeployer/journal/JournalMaker.h"

namespace {

using deployer::ChangeJournal;
using deployer::InterruptedRunRecovery;
using tests::journaled;
using tests::Role;

class InterruptedRunRecoveryTest : public ::testing::Test, protected tests::PropertyLists {
 protected:
  static Keys modifiable() { return {{std::string(deployer::kManifestIsModifiableFile), true}}; }
  [[nodiscard]] std::string at(const std::string& name) const { return box_.path(name); }

  tests::TemporaryDirectory box_;
  ChangeJournal journal_;
};

TEST_F(InterruptedRunRecoveryTest, BringsBackWhatARemovalForGoodTookInWhateverVersion) {
  journal_.add(journaled("Core", Role::Removed, manifestOf({entry(at("old.conf"), modifiable())}), true));
  journal_.add(journaled("Core", Role::Placed, manifestOf({entry(at("new.conf"), modifiable())})));
  journal_.add(journaled("Tools", Role::Placed, manifestOf({entry(at("tools.conf"), modifiable())})));
  const auto missing = InterruptedRunRecovery::missingModifiableFiles(journal_).value();
  EXPECT_TRUE(missing.contains(at("old.conf")));
  EXPECT_TRUE(missing.contains(at("new.conf")));
  EXPECT_FALSE(missing.contains(at("tools.conf"))) << "which no removal took";
}

TEST_F(InterruptedRunRecoveryTest, BringsBackWhatAnotherVersionPutSomethingElseInThePlaceOf) {
  journal_.add(
      journaled("Core", Role::Removed, manifestOf({entry(at("a"), modifiable()), entry(at("b"), modifiable())})));
  journal_.add(journaled("Core", Role::Placed, manifestOf({entry(at("a"), {})})));
  const auto missing = InterruptedRunRecovery::missingModifiableFiles(journal_).value();
  EXPECT_TRUE(missing.contains(at("a")));
  EXPECT_FALSE(missing.contains(at("b"))) << "which its user may have removed";
}

TEST_F(InterruptedRunRecoveryTest, LeavesWhatIsThere) {
  box_.write("old.conf", "edited");
  journal_.add(journaled("Core", Role::Removed, manifestOf({entry(at("old.conf"), modifiable())}), true));
  EXPECT_TRUE(InterruptedRunRecovery::missingModifiableFiles(journal_)->empty());
}

TEST_F(InterruptedRunRecoveryTest, TakesAwayWhatBothVersionsList) {
  box_.write("old", "x");
  box_.write("new", "x");
  box_.write("old.conf", "edited");
  journal_.add(
      journaled("Core", Role::Removed, manifestOf({entry(at("old"), {}), entry(at("old.conf"), modifiable())})));
  journal_.add(journaled("Core", Role::Placed, manifestOf({entry(at("new"), {})})));
  ASSERT_TRUE(InterruptedRunRecovery(journal_).run(false).ok());
  EXPECT_FALSE(std::filesystem::exists(at("old")));
  EXPECT_FALSE(std::filesystem::exists(at("new")));
  EXPECT_TRUE(std::filesystem::exists(at("old.conf")));
  ASSERT_TRUE(InterruptedRunRecovery(journal_).run(true).ok());
  EXPECT_FALSE(std::filesystem::exists(at("old.conf")));
}

}  // namespace
