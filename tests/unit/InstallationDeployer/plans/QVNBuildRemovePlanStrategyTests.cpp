#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "InstallationDeployer/plans/QVNBuildRemovePlanStrategy.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeStepContext.h"
#include "tests/unit/InstallationDeployer/BundleFixture.h"

namespace deployer {
namespace {

class BuildRemovePlan : public ::testing::Test, protected tests::BundleFixture {
 protected:
  void SetUp() override { run_.configuration().setProductName("P"); }
  void writeProduct(const Plan& components) const {
    writeIndex(indexOfComponents("P", components));
    for (const std::string& component : components) {
      writeManifest(component, dictionary({{"ComponentVersion", "1.0"}}));
    }
  }

  tests::FakeStepContext run_{path()};
  SharedPlan plan_ = std::make_shared<Plan>();
  QVNBuildRemovePlanStrategy step_{{}, "buildRemovePlan", nullptr, run_, plan_};
};

TEST_F(BuildRemovePlan, StepHandedAFailureDoesNothing) {
  run_.configuration().setBundlePathIsReceipt(true);
  writeProduct({"A"});
  *plan_ = {"stale"};
  EXPECT_FALSE(step_.execute(false));
  EXPECT_EQ(*plan_, Plan{"stale"});
  EXPECT_EQ(step_.installerState(), QVNInstallerStateSuccess);
}

TEST_F(BuildRemovePlan, OutsideTheReceiptLocationFails) {
  const tests::CapturedLog log;
  EXPECT_FALSE(step_.execute(true));
  EXPECT_EQ(step_.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains(
      "Error", "QVNBuildRemovePlanStrategy must run from the receipt location.\n\tCurrently running from: " + path()));
}

TEST_F(BuildRemovePlan, PlansEveryComponentInIndexOrder) {
  run_.configuration().setBundlePathIsReceipt(true);
  writeProduct({"B", "A"});
  *plan_ = {"stale"};
  EXPECT_TRUE(step_.execute(true));
  EXPECT_EQ(*plan_, (Plan{"B", "A"}));
}

TEST_F(BuildRemovePlan, AMissingManifestIsSaidAndTheOthersAreRemovedAllTheSame) {
  run_.configuration().setBundlePathIsReceipt(true);
  writeProduct({"B", "Gone", "A"});
  std::filesystem::remove(run_.manifest().getPathForComponent("Gone"));
  const tests::CapturedLog log;
  EXPECT_TRUE(step_.execute(true));
  EXPECT_EQ(*plan_, (Plan{"B", "Gone", "A"}));
  EXPECT_EQ(log.texts("Warning"),
            (std::vector<std::string>{"The manifest of component Gone is missing or damaged: " +
                                      run_.manifest().getPathForComponent("Gone") + ". Its files stay."}));
  EXPECT_TRUE(run_.manifest().walkManifestFileListForComponents(
      *plan_, true, true, [](const auto&, const auto&, const auto&) { return true; }))
      << "the state of the manifests must not end the removal";
}

TEST_F(BuildRemovePlan, AManifestWithoutAVersionIsNoMissingOne) {
  run_.configuration().setBundlePathIsReceipt(true);
  writeProduct({"B", "A"});
  writeManifest("A", dictionary({}));
  const tests::CapturedLog log;
  EXPECT_TRUE(step_.execute(true));
  EXPECT_EQ(*plan_, (Plan{"B", "A"}));
  EXPECT_TRUE(log.texts("Warning").empty());
}

TEST_F(BuildRemovePlan, WithoutTheIndexTheComponentsAreThoseWithManifests) {
  run_.configuration().setBundlePathIsReceipt(true);
  writeProduct({"B", "A"});
  const std::string index = path("Contents/Install/Manifests/Index.plist");
  std::filesystem::remove(index);
  directory().write("Installer.app/Contents/Install/Manifests/notes.txt", "no manifest");
  const tests::CapturedLog log;
  EXPECT_TRUE(step_.execute(true));
  EXPECT_EQ(*plan_, (Plan{"A", "B"}));
  ASSERT_EQ(log.texts("Warning").size(), 1U);
  EXPECT_TRUE(log.texts("Warning")[0].starts_with("The manifest index is missing or damaged: " + index + "."));
}

TEST_F(BuildRemovePlan, WhatIsOfThePlanButCannotBeReadEndsTheRemoval) {
  run_.configuration().setBundlePathIsReceipt(true);
  writeProduct({"B", "A"});
  std::filesystem::remove(run_.manifest().getPathForComponent("A"));
  std::filesystem::create_directory(run_.manifest().getPathForComponent("A"));
  const tests::CapturedLog log;
  EXPECT_FALSE(step_.execute(true));
  EXPECT_EQ(step_.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.text().find("<Error>: Failed to read manifest for A. Error Domain=") != std::string::npos)
      << log.text();
}

TEST_F(BuildRemovePlan, AnIndexThatCannotBeReadEndsTheRemoval) {
  run_.configuration().setBundlePathIsReceipt(true);
  writeProduct({"A"});
  std::filesystem::remove(path("Contents/Install/Manifests/Index.plist"));
  std::filesystem::create_directory(path("Contents/Install/Manifests/Index.plist"));
  const tests::CapturedLog log;
  EXPECT_FALSE(step_.execute(true));
  EXPECT_EQ(step_.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.texts("Warning").empty()) << "it is not missing";
}

TEST_F(BuildRemovePlan, AManifestToCleanUpBesidesMayBeMissingButMustNotBeUnreadable) {
  run_.configuration().setBundlePathIsReceipt(true);
  writeProduct({"A"});
  writeIndex(indexOfComponents("P", {"A"})
                 .with("ProductCleanup", dictionary({{"ListOfComponents", PropertyList(Plan{"Older"})}})));
  const tests::CapturedLog log;
  EXPECT_TRUE(step_.execute(true));
  EXPECT_TRUE(log.texts("Warning").empty());
  std::filesystem::create_directory(run_.manifest().getPathForComponent("Older"));
  EXPECT_FALSE(step_.execute(true));
}

TEST_F(BuildRemovePlan, WithoutRecordsPlansNothingAndSucceeds) {
  run_.configuration().setBundlePathIsReceipt(true);
  *plan_ = {"stale"};
  EXPECT_TRUE(step_.execute(true));
  EXPECT_TRUE(plan_->empty());
  EXPECT_EQ(run_.manifest().installerState(), 1);
}

}  // namespace
}  // namespace deployer
