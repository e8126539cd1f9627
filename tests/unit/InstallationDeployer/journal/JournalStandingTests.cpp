#include <gtest/gtest.h>

#include "InstallationDeployer/ManifestKeys.h"
#include "InstallationDeployer/journal/JournalStanding.h"
#include "general/foundation/propertylist/PropertyList.h"
#include "tests/support/StepTest.h"
#include "tests/unit/InstallationDeployer/journal/JournalMaker.h"

namespace {

using deployer::ChangeJournal;
using deployer::JournalStanding;
using deployer::standingOf;
using foundation::PropertyList;
using tests::journalOfAnUpgrade;
using tests::PropertyLists;

const auto kOld = PropertyLists::records({{"Core", "1.0"}});
const auto kNew = PropertyLists::records({{"Core", "1.1"}});
const auto kOther = PropertyLists::records({{"Core", "1.2"}});

TEST(JournalStanding, OfAnUpgradeIsInterruptedWhileTheOldReceiptIsThere) {
  EXPECT_EQ(standingOf(journalOfAnUpgrade(), kOld), JournalStanding::Interrupted);
}

TEST(JournalStanding, OfAnUpgradeIsFinishedWithTheNewReceipt) {
  EXPECT_EQ(standingOf(journalOfAnUpgrade(), kNew), JournalStanding::Finished);
}

TEST(JournalStanding, WithAThirdVersionsReceiptIsOvertaken) {
  EXPECT_EQ(standingOf(journalOfAnUpgrade(), kOther), JournalStanding::Overtaken);
}

TEST(JournalStanding, IsInterruptedWithAReceiptThatLacksAManifest) {
  const PropertyList damaged(
      PropertyList::Array{PropertyList::dictionary({{std::string(deployer::kManifestComponentName), "Core"}})});
  EXPECT_EQ(standingOf(journalOfAnUpgrade(), damaged), JournalStanding::Interrupted);
}

TEST(JournalStanding, OfARepairIsInterruptedWhileItsJournalIsThere) {
  ChangeJournal repair = journalOfAnUpgrade();
  repair.versionsAfter = repair.versionsBefore;
  EXPECT_EQ(standingOf(repair, kOld), JournalStanding::Interrupted);
}

TEST(JournalStanding, OfAFirstInstallIsInterruptedWithoutAReceipt) {
  ChangeJournal first = journalOfAnUpgrade();
  first.versionsBefore = {};
  EXPECT_EQ(standingOf(first, {}), JournalStanding::Interrupted);
  EXPECT_EQ(standingOf(first, kNew), JournalStanding::Finished);
  EXPECT_EQ(standingOf(first, kOther), JournalStanding::Overtaken);
}

TEST(JournalStanding, OfAnUpgradeIsInterruptedWhenSomebodyTookTheReceiptAway) {
  EXPECT_EQ(standingOf(journalOfAnUpgrade(), {}), JournalStanding::Interrupted);
}

TEST(JournalStanding, OfARemovalIsFinishedWithoutAReceipt) {
  ChangeJournal removal = journalOfAnUpgrade();
  removal.operation = ChangeJournal::Operation::Remove;
  removal.versionsAfter = {};
  EXPECT_EQ(standingOf(removal, kOld), JournalStanding::Interrupted);
  EXPECT_EQ(standingOf(removal, {}), JournalStanding::Finished);
  EXPECT_EQ(standingOf(removal, kNew), JournalStanding::Overtaken);
}

class VersionsIn : public tests::StepTest {};

TEST_F(VersionsIn, AreThoseOfTheProductsComponentsInTheOrderOfTheIndex) {
  writeIndex(std::vector<std::string>{"Tools", "Core"});
  writeComponent("Core", dictionary({{"ComponentVersion", "1.1"}}));
  writeComponent("Tools", dictionary({{"ComponentVersion", "2"}}));
  writeComponent("Other", dictionary({{"ComponentVersion", "3"}}));
  EXPECT_EQ(deployer::versionsIn(run().manifest(), product_), records({{"Tools", "2"}, {"Core", "1.1"}}));
}

TEST_F(VersionsIn, LeavesOutTheVersionOfAMissingManifestAndSaysNothing) {
  writeIndex(std::vector<std::string>{"Core"});
  const tests::CapturedLog log;
  EXPECT_EQ(deployer::versionsIn(run().manifest(), product_), array({dictionary({{"ComponentName", "Core"}})}));
  EXPECT_EQ(deployer::versionsIn(run().manifest(), "No such product"), array({}));
  EXPECT_EQ(log.text(), "");
}

}  // namespace
