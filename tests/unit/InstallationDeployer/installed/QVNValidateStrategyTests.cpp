#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "InstallationDeployer/installed/QVNValidateStrategy.h"
#include "InstallationDeployer/steps/QVNAggregateInstallStrategy.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "tests/support/PropertyLists.h"
#include "tests/support/StepTest.h"
#include "tests/support/Unprivileged.h"

namespace {

using deployer::Plan;
using deployer::QVNValidateStrategy;
using tests::CapturedLog;
using namespace std::string_literals;

class Validate : public tests::StepTest {
 protected:
  static constexpr int kWrong = 4711;

  // Everything a test makes belongs to whoever runs it.
  static Keys own(int permissions) {
    return attributes(permissions, static_cast<int>(geteuid()), static_cast<int>(getegid()));
  }
  static Keys modifiable() { return {{std::string(deployer::kManifestIsModifiableFile), true}}; }
  std::string makeFile(std::string_view name) {
    writeFile(path(name), "x");
    return path(name);
  }
  void describe(const std::string& component, Entries entries) {
    writeComponent(component, manifestOf(std::move(entries)));
  }
  bool validate(Plan plan) {
    step_ = makeStep<QVNValidateStrategy>(std::move(plan));
    return step_->execute(true);
  }
  bool validate(Entries entries) {
    describe("Core", std::move(entries));
    return validate(Plan{"Core"});
  }
  [[nodiscard]] const Plan& fixPlan() const { return *step_->plan(); }
  static std::string missing(const std::string& path, const std::string& component = "Core") {
    return "File " + path + " is missing. adding " + component + " component to fixPlan";
  }

  std::unique_ptr<QVNValidateStrategy> step_;
};

TEST_F(Validate, WhatIsAsTheManifestSaysLeavesAnEmptyPlanAndSucceeds) {
  const auto folder = std::filesystem::path(makeFile("folder/file")).parent_path().string();
  ASSERT_EQ(symlink("nowhere", path("link").c_str()), 0);
  const CapturedLog log;
  EXPECT_TRUE(validate(
      {directory(folder, own(0755)), entry(folder + "/file", own(0644)), link(path("link"), "nowhere", own(0777))}));
  EXPECT_EQ(fixPlan(), Plan{});
  EXPECT_TRUE(log.texts("Info").empty());
}

TEST_F(Validate, AFailedStepBeforeMakesItDoNothing) {
  describe("Core", {entry(path("missing"), own(0644))});
  const CapturedLog log;
  step_ = makeStep<QVNValidateStrategy>({"Core"});
  EXPECT_FALSE(step_->execute(false));
  EXPECT_EQ(fixPlan(), Plan{"Core"});
  EXPECT_EQ(step_->installerState(), deployer::QVNInstallerStateSuccess);
  EXPECT_TRUE(run().states.empty());
  EXPECT_TRUE(log.contains("Debug", ">>> executing step with plan: (Core)"));
}

TEST_F(Validate, StaysInTheValidatingStateHoweverItEnds) {
  const CapturedLog log;
  EXPECT_TRUE(validate(Entries{}));
  EXPECT_EQ(step_->installerState(), deployer::QVNInstallerStateValidating);
  EXPECT_FALSE(validate({entry(path("missing"), own(0644))}));
  EXPECT_EQ(step_->installerState(), deployer::QVNInstallerStateValidating);
  EXPECT_EQ(run().states, (std::vector<deployer::QVNInstallerState>(2, deployer::QVNInstallerStateValidating)));
}

TEST_F(Validate, TheCompositeReportsTheValidatingStateAsTheFailure) {
  describe("Core", {entry(path("missing"), own(0644))});
  const CapturedLog log;
  deployer::StepList steps;
  steps.push_back(makeStep<QVNValidateStrategy>({"Core"}));
  deployer::QVNAggregateInstallStrategy root(PropertyList(), "root", std::move(steps), nullptr, run());
  EXPECT_FALSE(root.execute(true));
  EXPECT_EQ(root.installerState(), deployer::QVNInstallerStateValidating);
}

TEST_F(Validate, AMissingFilePutsItsComponentIntoThePlan) {
  const CapturedLog log;
  EXPECT_FALSE(validate({entry(path("missing"), own(0644))}));
  EXPECT_EQ(fixPlan(), Plan{"Core"});
  EXPECT_EQ(log.texts("Info"), std::vector<std::string>{missing(path("missing"))});
}

TEST_F(Validate, TwoMissingFilesOfOneComponentPutItInTwice) {
  const CapturedLog log;
  EXPECT_FALSE(validate({entry(path("a"), own(0644)), entry(makeFile("b"), own(0644)), entry(path("c"), own(0644))}));
  EXPECT_EQ(fixPlan(), (Plan{"Core", "Core"}));
  EXPECT_EQ(log.texts("Info"), (std::vector<std::string>{missing(path("a")), missing(path("c"))}));
}

TEST_F(Validate, ThePlanIsReplacedInPlaceInTheOrderOfTheWalk) {
  describe("A", {entry(path("a"), own(0644))});
  describe("B", {entry(makeFile("b"), own(0644))});
  describe("C", {entry(path("c"), own(0644)), entry(path("d"), own(0644))});
  const CapturedLog log;
  step_ = makeStep<QVNValidateStrategy>({"C", "B", "A"});
  const deployer::SharedPlan shared = step_->plan();
  EXPECT_FALSE(step_->execute(true));
  EXPECT_EQ(*shared, (Plan{"C", "C", "A"}));
  EXPECT_EQ(step_->plan(), shared);
}

TEST_F(Validate, ALaterComponentThatIsWholeDoesNotHideTheFailure) {
  describe("A", {entry(path("missing"), own(0644))});
  describe("B", {entry(makeFile("b"), own(0644))});
  const CapturedLog log;
  EXPECT_FALSE(validate(Plan{"A", "B"}));
  EXPECT_EQ(fixPlan(), Plan{"A"});
}

TEST_F(Validate, AMissingFileWithAnExternalSourcePasses) {
  const CapturedLog log;
  EXPECT_TRUE(validate({external(path("missing"), "/from/elsewhere", own(0644))}));
  EXPECT_TRUE(log.texts("Info").empty());
}

TEST_F(Validate, AnExistingFileWithAnExternalSourceIsComparedLikeAnyOther) {
  const CapturedLog log;
  EXPECT_FALSE(validate({external(makeFile("file"), "/from/elsewhere", attributes(0600, kWrong, kWrong))}));
}

TEST_F(Validate, AMissingModifiableFileIsMissing) {
  const CapturedLog log;
  EXPECT_FALSE(validate({entry(path("missing"), modifiable())}));
}

TEST_F(Validate, AModifiableFileThatExistsIsNotCompared) {
  const CapturedLog log;
  EXPECT_TRUE(validate({entry(makeFile("file"), joined(attributes(0600, kWrong, kWrong), modifiable()))}));
}

TEST_F(Validate, AnEqualOwnerIsEnough) {
  const CapturedLog log;
  EXPECT_TRUE(validate({entry(makeFile("file"), attributes(0600, static_cast<int>(geteuid()), kWrong))}));
}

TEST_F(Validate, AnEqualGroupIsEnough) {
  const CapturedLog log;
  EXPECT_TRUE(validate({entry(makeFile("file"), attributes(0600, kWrong, static_cast<int>(getegid())))}));
}

TEST_F(Validate, EqualPermissionsAreEnough) {
  const CapturedLog log;
  EXPECT_TRUE(validate({entry(makeFile("file"), attributes(0644, kWrong, kWrong))}));
}

TEST_F(Validate, OnlyWhenOwnerGroupAndPermissionsAllDifferTheComponentNeedsRepair) {
  const auto wrong = entry(makeFile("file"), attributes(0600, kWrong, kWrong));
  const CapturedLog log;
  EXPECT_FALSE(validate({wrong}));
  EXPECT_EQ(fixPlan(), Plan{"Core"});
  const auto lines = log.texts("Info");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_TRUE(lines.front().starts_with("Adding Core component to fixPlan because file attributes different for " +
                                        path("file") + "\n\tfile attributes: {"))
      << lines.front();
  EXPECT_NE(lines.front().find("NSFilePosixPermissions = 420;"), std::string::npos) << lines.front();
  EXPECT_TRUE(lines.front().ends_with("\n\tmanifest attributes: " + foundation::description(wrong))) << lines.front();
}

TEST_F(Validate, AttributesThatAreMissingOrNoNumbersAreEqualToNothing) {
  const CapturedLog log;
  EXPECT_FALSE(validate(
      {entry(makeFile("a"), {}), entry(makeFile("b"), {{std::string(deployer::kFilePosixPermissions), "420"}})}));
  EXPECT_EQ(fixPlan(), (Plan{"Core", "Core"}));
}

TEST_F(Validate, ContentsAndChecksumsAreNotLookedAt) {
  const CapturedLog log;
  EXPECT_TRUE(validate({entry(
      makeFile("file"), joined(own(0644), {{std::string(deployer::kManifestSHAChecksum), std::string(64, '0')}}))}));
}

TEST_F(Validate, PathsBelowTheSystemFolderAreSkipped) {
  const CapturedLog log;
  EXPECT_TRUE(validate({entry("/System/of/a/unit/test", own(0644))}));
  EXPECT_FALSE(validate({entry("/SystemX/of/a/unit/test", own(0644))}));
}

TEST_F(Validate, ALinkOfTheManifestOnlyHasToBeThere) {
  ASSERT_EQ(symlink("nowhere", path("link").c_str()), 0);
  const CapturedLog log;
  EXPECT_TRUE(validate({link(path("link"), "nowhere", own(0777))}));
}

TEST_F(Validate, ALinkThatLeadsNowhereInTheFilesPlaceIsAMissingFile) {
  ASSERT_EQ(symlink("nowhere", path("file").c_str()), 0);
  const CapturedLog log;
  EXPECT_FALSE(validate({entry(path("file"), own(0777))}));
  EXPECT_EQ(log.texts("Info"), std::vector<std::string>{missing(path("file"))});
}

TEST_F(Validate, ALinkIsComparedItselfAndNotWhatItLeadsTo) {
  makeFile("file");
  ASSERT_EQ(symlink("file", path("link").c_str()), 0);
  const CapturedLog log;
  // The link's own permissions are not the file's.
  EXPECT_FALSE(validate({entry(path("link"), attributes(0644, kWrong, kWrong))}));
}

TEST_F(Validate, FilesBelowALinkedFolderAreFound) {
  makeFile("folder/file");
  ASSERT_EQ(symlink("folder", path("other").c_str()), 0);
  const CapturedLog log;
  EXPECT_TRUE(validate({entry(path("other/file"), own(0644))}));
}

TEST_F(Validate, WhatLiesBelowAFileIsMissing) {
  makeFile("file");
  const CapturedLog log;
  EXPECT_FALSE(validate({entry(path("file/below"), own(0644)), entry(path("file/below/it"), own(0644))}));
  EXPECT_EQ(fixPlan(), (Plan{"Core", "Core"}));
}

TEST_F(Validate, EntriesWithoutAUsablePathAreMissing) {
  const std::string file = makeFile("file");
  const std::string folder = makeFile("folder/x").substr(0, path("folder").size());
  const CapturedLog log;
  EXPECT_FALSE(validate({PropertyList::dictionary(own(0644)), PropertyList("text"), entry("", own(0644)),
                         entry("file", own(0644)), entry(folder + "/../file", own(0644)),
                         entry(file + "\0x"s, own(0644)), entry(path(std::string(256, 'x')), own(0644)),
                         PropertyList::dictionary({{std::string(deployer::kManifestFilePath), 7}})}));
  EXPECT_EQ(fixPlan(), Plan(8, "Core"));
  EXPECT_EQ(log.count("Info", "File (null) is missing. adding Core component to fixPlan"), 2U);
}

TEST_F(Validate, OtherSpellingsOfAPathFindTheSameItem) {
  makeFile("folder/file");
  const CapturedLog log;
  EXPECT_TRUE(validate({directory(path("folder/"), own(0755)), entry(path("folder//./file"), own(0644))}));
}

TEST_F(Validate, TheRootItselfCanBeValidated) {
  struct stat status {};
  ASSERT_EQ(stat("/", &status), 0);
  const CapturedLog log;
  EXPECT_TRUE(validate({directory("/", attributes(static_cast<int>(status.st_mode & 07777), kWrong, kWrong))}));
}

TEST_F(Validate, ManifestsThatAreMissingOrHoldNoListHaveNothingToRepair) {
  writeComponent("Odd", PropertyList::dictionary({{std::string(deployer::kManifestListOfFiles), "none"}}));
  const CapturedLog log;
  EXPECT_TRUE(validate(Plan{"Absent", "Odd"}));
  EXPECT_EQ(fixPlan(), Plan{});
}

TEST_F(Validate, AnItemOfWhichNobodyCanTellIsNeitherThereNorMissingAndThereIsNoFixPlan) {
  const std::string hidden = makeFile("closed/file");
  ASSERT_EQ(chmod(path("").c_str(), 0755), 0);
  ASSERT_EQ(chmod(path("closed").c_str(), 0700), 0);
  describe("Core", {entry(path("missing"), own(0644)), entry(hidden, own(0644)), entry(path("other"), own(0644))});
  describe("More", {entry(path("missing"), own(0644))});
  const CapturedLog log;
  {
    const tests::Unprivileged nobody;
    ASSERT_TRUE(nobody.changed());
    EXPECT_FALSE(validate(Plan{"Core", "More"}));
  }
  EXPECT_EQ(fixPlan(), Plan{});
  EXPECT_EQ(step_->installerState(), deployer::QVNInstallerStateFailed);
  ASSERT_EQ(log.texts("Error").size(), 1U) << log.text();
  EXPECT_TRUE(log.texts("Error")[0].starts_with("Unable to look for " + hidden + ". Error Domain="));
}

TEST_F(Validate, ALinkOfWhichNobodyCanTellWhereItLeadsIsNoMissingFile) {
  makeFile("closed/file");
  ASSERT_EQ(symlink("closed/file", path("link").c_str()), 0);
  ASSERT_EQ(chmod(path("").c_str(), 0755), 0);
  ASSERT_EQ(chmod(path("closed").c_str(), 0700), 0);
  describe("Core", {entry(path("link"), own(0644))});
  const CapturedLog log;
  {
    const tests::Unprivileged nobody;
    ASSERT_TRUE(nobody.changed());
    EXPECT_FALSE(validate(Plan{"Core"}));
  }
  EXPECT_EQ(fixPlan(), Plan{});
  EXPECT_TRUE(mentions(log, "<Error>: Unable to look for " + path("link") + ". Error Domain=")) << log.text();
}

TEST_F(Validate, AManifestThatCannotBeReadLeavesNoFixPlan) {
  describe("Core", {entry(path("missing"), own(0644))});
  std::filesystem::create_directories(run().manifest().getPathForComponent("Folder"));
  const CapturedLog log;
  EXPECT_FALSE(validate(Plan{"Core", "Folder"}));
  EXPECT_EQ(fixPlan(), Plan{});
  EXPECT_EQ(step_->installerState(), deployer::QVNInstallerStateFailed);
  EXPECT_TRUE(mentions(log, "<Error>: Failed to read manifest for Folder. Error Domain=")) << log.text();
}

TEST_F(Validate, WithoutAPlanThereIsNothingToRepair) {
  QVNValidateStrategy step(PropertyList(), "step", nullptr, run(), nullptr);
  const CapturedLog log;
  EXPECT_TRUE(step.execute(true));
}

TEST_F(Validate, ProgressIsTheBaseClasss) {
  step_ = makeStep<QVNValidateStrategy>({});
  EXPECT_EQ(step_->getProgress(), 10U);
  EXPECT_EQ(step_->getProgress(), 20U);
}

}  // namespace
