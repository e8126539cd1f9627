#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "InstallationDeployer/plans/QVNBuildInstallPlanStrategy.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeReceiptContext.h"
#include "tests/support/FakeStepContext.h"
#include "tests/unit/InstallationDeployer/BundleFixture.h"

namespace deployer {
namespace {

class BuildPlan : public ::testing::Test, protected tests::BundleFixture {
 protected:
  void SetUp() override { run_.configuration().setProductName("P"); }

  void writeProduct(const std::vector<std::string>& components) const {
    writeIndex(indexOfComponents("P", components));
  }
  void writeVersion(const std::string& component, const std::string& version, PropertyList::Array entries = {}) const {
    writeManifest(component, dictionary({{"ComponentVersion", version}, {"ListOfFiles", array(std::move(entries))}}));
  }
  [[nodiscard]] std::optional<Plan> upgrade(const PropertyList& installed) {
    auto found = installStep_.upgradePlanForComponents(installed);
    if (found) {
      std::sort(found->begin(), found->end());
    }
    return found;
  }
  [[nodiscard]] PropertyList checkedExternal(const std::string& source, const std::string& installed,
                                             bool directory = false) const {
    return dictionary({{"Path", installed},
                       {"ExternalSourcePath", source},
                       {"CheckForExternalFileChanges", true},
                       {"IsDirectory", directory}});
  }
  /// The upgrade plan of a product whose one component is unchanged but for its external files.
  [[nodiscard]] std::optional<Plan> upgradeWithExternal(PropertyList::Array entries) {
    writeProduct({"A"});
    writeVersion("A", "1.0", std::move(entries));
    return upgrade(records({{"A", "1.0"}}));
  }

  tests::FakeStepContext run_{path()};
  tests::FakeReceiptContext receipts_{path()};
  SharedPlan plan_ = std::make_shared<Plan>();
  QVNBuildInstallPlanStrategy installStep_{{}, "localPayload.buildPlan", nullptr, run_, plan_, receipts_};
  const std::string dueToExternal_ = "Adding component A to upgrade plan due to external file change";
};

TEST_F(BuildPlan, FreshInstallPlansEveryComponentInIndexOrder) {
  writeProduct({"A", "B", "C"});
  EXPECT_TRUE(installStep_.execute(true));
  EXPECT_EQ(*plan_, (Plan{"A", "B", "C"}));
  EXPECT_TRUE(run_.states.empty());
}

TEST_F(BuildPlan, FreshInstallWithoutAListPlansNothingAndSucceeds) {
  EXPECT_TRUE(installStep_.execute(true));
  EXPECT_TRUE(plan_->empty());
}

TEST_F(BuildPlan, StepHandedAFailureDoesNothing) {
  writeProduct({"A"});
  EXPECT_FALSE(installStep_.execute(false));
  EXPECT_TRUE(plan_->empty());
}

TEST_F(BuildPlan, ProgressIsAlwaysHalfWay) {
  EXPECT_EQ(installStep_.getProgress(), 50U);
  EXPECT_EQ(installStep_.getProgress(), 50U);
}

TEST_F(BuildPlan, InstallOverAReceiptNeedsToReachIt) {
  writeProduct({"A"});
  run_.configuration().setHasInstallerReceipt(true);
  const tests::CapturedLog log;
  EXPECT_FALSE(installStep_.execute(true));
  EXPECT_EQ(installStep_.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains("Error", "Failed to connect with receipt"));
  EXPECT_TRUE(plan_->empty());
}

TEST_F(BuildPlan, InstallOverAReceiptNeedsProductAndComponentList) {
  run_.configuration().setHasInstallerReceipt(true);
  {
    const tests::CapturedLog log;
    EXPECT_FALSE(installStep_.execute(true));
    EXPECT_TRUE(log.contains("Error", "Unable to determine list of components for product(P)"));
    EXPECT_EQ(installStep_.installerState(), QVNInstallerStateSuccess);
  }
  run_.configuration().setProductName(std::nullopt);
  const tests::CapturedLog log;
  EXPECT_FALSE(installStep_.execute(true));
  EXPECT_TRUE(log.contains("Error", "Unable to determine product name"));
  EXPECT_EQ(installStep_.installerState(), QVNInstallerStateFailed);
}

TEST_F(BuildPlan, ChangedAndNewComponentsAreUpgraded) {
  writeProduct({"A", "B", "C"});
  writeVersion("A", "1.0");
  writeVersion("B", "1.1");
  writeVersion("C", "1.0");
  const tests::CapturedLog log;
  EXPECT_EQ(upgrade(records({{"A", "1.0"}, {"B", "1.0"}})), (Plan{"B", "C"}));
  EXPECT_TRUE(log.contains("Info", "Adding changed component B to upgrade plan"));
  EXPECT_TRUE(log.contains("Info", "Adding component C to upgrade plan"));
  EXPECT_TRUE(log.contains("Notice", "Upgrade plan is: (B, C)"));
}

TEST_F(BuildPlan, ComponentThatTheNewProductDroppedIsInThePlan) {
  writeProduct({"A"});
  writeVersion("A", "1.0");
  EXPECT_EQ(upgrade(records({{"A", "1.0"}, {"Dropped", "1.0"}})), Plan{"Dropped"});
}

TEST_F(BuildPlan, VersionsAreOnlyEqualWhenTheirTextsAre) {
  writeProduct({"A"});
  writeVersion("A", "1.0");
  EXPECT_EQ(upgrade(records({{"A", "1.0.0"}})), Plan{"A"});
  EXPECT_EQ(upgrade(records({{"A", "2.0"}})), Plan{"A"});
  EXPECT_EQ(upgrade(array({dictionary({{"ComponentName", "A"}})})), Plan{"A"});
  writeManifest("A", dictionary({{"ComponentSize", 1}}));
  EXPECT_EQ(upgrade(records({{"A", "1.0"}})), Plan{"A"});
}

TEST_F(BuildPlan, EqualProductHasNothingToUpgrade) {
  writeProduct({"A"});
  writeVersion("A", "1.0");
  installStep_.setInstallerState(QVNInstallerStateFailed);
  const tests::CapturedLog log;
  EXPECT_EQ(upgrade(records({{"A", "1.0"}})), Plan{});
  EXPECT_TRUE(log.contains("Notice", "Upgrade plan is empty. Nothing to upgrade"));
  EXPECT_EQ(installStep_.installerState(), QVNInstallerStateSuccess);
}

TEST_F(BuildPlan, NoRecordsMakeEveryComponentNew) {
  writeProduct({"A", "B"});
  EXPECT_EQ(upgrade({}), (Plan{"A", "B"}));
}

TEST_F(BuildPlan, UpgradeNeedsProductAndComponentList) {
  {
    const tests::CapturedLog log;
    EXPECT_FALSE(upgrade({}));
    EXPECT_TRUE(log.contains("Error", "Receipt unable to determine list of components."));
  }
  run_.configuration().setProductName(std::nullopt);
  const tests::CapturedLog log;
  EXPECT_FALSE(upgrade({}));
  EXPECT_TRUE(log.contains("Error", "Receipt unable to determine product name"));
  EXPECT_EQ(installStep_.installerState(), QVNInstallerStateFailed);
}

TEST_F(BuildPlan, ExternalFileWhoseInstalledCopyIsMissingIsAChange) {
  const std::string source = directory().write("source", "x");
  const tests::CapturedLog log;
  EXPECT_EQ(upgradeWithExternal({checkedExternal(source, directory().path("installed"))}), Plan{"A"});
  EXPECT_TRUE(log.contains("Info", dueToExternal_));
}

TEST_F(BuildPlan, ExternalFileMissingOnBothSidesFails) {
  const tests::CapturedLog log;
  EXPECT_FALSE(upgradeWithExternal({checkedExternal(directory().path("no"), directory().path("neither"))}));
  EXPECT_EQ(installStep_.installerState(), QVNInstallerStateFailed);
  ASSERT_EQ(log.texts("Error").size(), 1U);
  EXPECT_TRUE(log.texts("Error")[0].starts_with("Unable to read attributes. Error Domain="));
}

TEST_F(BuildPlan, ExternalFileOfEqualTypeAndSizeIsNoChangeWhateverItHolds) {
  const std::string source = directory().write("source", "abc");
  const std::string installed = directory().write("installed", "xyz");
  EXPECT_EQ(upgradeWithExternal({checkedExternal(source, installed)}), Plan{});
  directory().write("source", "abcd");
  EXPECT_EQ(upgradeWithExternal({checkedExternal(source, installed)}), Plan{"A"});
  std::filesystem::remove(source);
  std::filesystem::create_directory(source);
  EXPECT_EQ(upgradeWithExternal({checkedExternal(source, installed)}), Plan{"A"});
}

TEST_F(BuildPlan, ExternalFileThatNobodyWantsCheckedIsNotLookedAt) {
  EXPECT_EQ(upgradeWithExternal({dictionary({{"Path", "/no"}, {"ExternalSourcePath", "/neither"}})}), Plan{});
  EXPECT_EQ(upgradeWithExternal({dictionary({{"Path", "/no"}, {"CheckForExternalFileChanges", true}})}), Plan{});
}

TEST_F(BuildPlan, RelativeExternalPathLiesInThePayload) {
  directory().write("Installer.app/Contents/Install/Root/x/source", "abc");
  const std::string installed = directory().write("installed", "abc");
  const tests::CapturedLog log;
  EXPECT_EQ(upgradeWithExternal({checkedExternal("y/../x/source", installed)}), Plan{});
  EXPECT_TRUE(log.contains("Debug", "#### checking external source: upgradePlanForComponents:: externalSourcePath = " +
                                        path("Contents/Install/Root/x/source")));
}

TEST_F(BuildPlan, ExternalDirectoriesAreComparedByTheirImmediateChildren) {
  directory().write("source/a", "1");
  directory().write("source/sub/deep", "1");
  directory().write("installed/a", "2");
  directory().write("installed/sub/deep", "12345");
  const PropertyList entry = checkedExternal(directory().path("source"), directory().path("installed"), true);
  EXPECT_EQ(upgradeWithExternal({entry}), Plan{});
  directory().write("installed/a", "22");
  EXPECT_EQ(upgradeWithExternal({entry}), Plan{"A"});
  directory().write("installed/a", "2");
  directory().write("source/b", "");
  {
    const tests::CapturedLog log;
    EXPECT_EQ(upgradeWithExternal({entry, entry}), Plan{"A"});
    EXPECT_EQ(log.count("Info", "Adding component A to upgrade plan"), 2U);
    EXPECT_TRUE(log.contains("Debug",
                             "#### external directory cheking: upgradePlanForComponents:: "
                             "externalDirectoryContents.count = 3"));
  }
  directory().write("installed/c", "");
  EXPECT_EQ(upgradeWithExternal({entry}), Plan{"A"});
}

TEST_F(BuildPlan, MissingExternalDirectoriesCountAsEmpty) {
  EXPECT_EQ(upgradeWithExternal({checkedExternal(directory().path("no"), directory().path("neither"), true)}), Plan{});
  directory().write("installed/a", "");
  EXPECT_EQ(upgradeWithExternal({checkedExternal(directory().path("no"), directory().path("installed"), true)}),
            Plan{"A"});
}

TEST_F(BuildPlan, ExternalDirectoryThatCannotBeListedFails) {
  const std::string file = directory().write("file", "");
  const tests::CapturedLog log;
  EXPECT_FALSE(upgradeWithExternal({checkedExternal(file, directory().path("neither"), true)}));
  EXPECT_EQ(installStep_.installerState(), QVNInstallerStateFailed);
  ASSERT_EQ(log.texts("Error").size(), 1U);
  EXPECT_TRUE(log.texts("Error")[0].starts_with("Unable to read directory contents. Error Domain="));
}

}  // namespace
}  // namespace deployer
