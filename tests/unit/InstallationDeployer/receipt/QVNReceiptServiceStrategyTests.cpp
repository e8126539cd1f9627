#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <optional>

#include "InstallationDeployer/receipt/QVNReceiptServiceStrategy.h"
#include "general/foundation/Thread.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeReceiptContext.h"
#include "tests/support/FakeStepContext.h"
#include "tests/unit/InstallationDeployer/BundleFixture.h"

namespace deployer {
namespace {

using Texts = std::vector<std::string>;
using States = std::vector<QVNInstallerState>;

/// What a receipt process does on behalf of an installer, without the connection between them.
class ReceiptService : public ::testing::Test, protected tests::BundleFixture {
 protected:
  void SetUp() override {
    run_.configuration().setProductName("P");
    run_.configuration().setInstall(false);
    run_.configuration().setReceipt(true);
    run_.configuration().setBundlePathIsReceipt(true);
    writeIndex(indexOfComponents("P", {"A", "B"}));
    writeComponent("A", {});
    writeComponent("B", {});
  }
  void writeComponent(const std::string& name, PropertyList::Array files) const {
    writeManifest(name, dictionary({{"ComponentVersion", "1.0"}, {"ListOfFiles", array(std::move(files))}}));
  }
  [[nodiscard]] static PropertyList file(const std::string& path) { return dictionary({{"Path", path}}); }

  tests::FakeStepContext run_{path()};
  tests::FakeReceiptContext receipts_{path()};
  QVNReceiptServiceStrategy step_{{}, "receiptService", nullptr, run_, nullptr, receipts_};
};

TEST_F(ReceiptService, NotificationsAreAboutTheBundlePathFollowedByReceipt) {
  EXPECT_EQ(QVNReceiptServiceStrategy::receiptNotificationIdForBundlePath("/a/Installer.app"),
            "/a/Installer.app.receipt");
}

TEST_F(ReceiptService, TellsComponentsAndVersionsInIndexOrder) {
  EXPECT_EQ(step_.componentsAndVersions(), array({dictionary({{"ComponentName", "A"}, {"ComponentVersion", "1.0"}}),
                                                  dictionary({{"ComponentName", "B"}, {"ComponentVersion", "1.0"}})}));
  EXPECT_TRUE(run_.states.empty());
}

TEST_F(ReceiptService, VersionsThatCannotBeToldGiveNothingAndTheFailureOfTheManifests) {
  writeManifest("B", dictionary({}));
  const tests::CapturedLog log;
  EXPECT_TRUE(step_.componentsAndVersions().isNil());
  EXPECT_EQ(step_.installerState(), QVNInstallerStateFailed);
  EXPECT_EQ(run_.states, States{QVNInstallerStateFailed});
}

TEST_F(ReceiptService, EveryStateIsPassedOnToTheRunFinalOnesIncluded) {
  const tests::CapturedLog log;
  step_.setInstallerState(QVNInstallerStateSuccess);
  step_.setInstallerState(QVNInstallerStateRemoving);
  step_.setInstallerState(QVNInstallerStateFailed);
  EXPECT_EQ(run_.states, (States{QVNInstallerStateSuccess, QVNInstallerStateRemoving, QVNInstallerStateFailed}));
  EXPECT_TRUE(
      log.contains("Debug", "----- <" + foundation::currentThreadName() + ">[receiptService setInstallerState:20]"));
}

TEST_F(ReceiptService, AnEmptyFixPlanIsReturnedAsItIs) {
  const tests::CapturedLog log;
  EXPECT_EQ(step_.fixPlanForValidation(), Texts{});
  EXPECT_TRUE(log.contains("Notice", "Fix plan is empty. Nothing to fix"));
  EXPECT_TRUE(log.contains("Debug", "fixPlanForValidation:"));
  EXPECT_EQ(run_.states.front(), QVNInstallerStateValidating);
}

TEST_F(ReceiptService, TheFixPlanNamesAComponentForEveryMissingFile) {
  writeComponent("B", {file(path("gone")), file(path("gone too"))});
  const tests::CapturedLog log;
  EXPECT_EQ(step_.fixPlanForValidation(), (Texts{"B", "B"}));
  EXPECT_TRUE(log.contains("Notice", "Fix plan is: (B, B)"));
  EXPECT_EQ(step_.installerState(), QVNInstallerStateValidating);
}

TEST_F(ReceiptService, AProductWithoutComponentsHasNoFixPlan) {
  run_.configuration().setProductName("Other");
  const tests::CapturedLog log;
  EXPECT_EQ(step_.fixPlanForValidation(), std::nullopt);
  EXPECT_TRUE(log.contains("Notice", "Fix plan is empty. Nothing to fix"));
}

TEST_F(ReceiptService, AManifestThatCannotBeReadGivesNoAnswerAndTheStateOfFailure) {
  const std::string manifest = path("Contents/Install/Manifests/B.plist");
  std::filesystem::remove(manifest);
  std::filesystem::create_directory(manifest);
  const tests::CapturedLog log;
  EXPECT_EQ(step_.fixPlanForValidation(), std::nullopt);
  EXPECT_EQ(step_.installerState(), QVNInstallerStateFailed);
  EXPECT_EQ(run_.states.back(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.texts("Notice").empty()) << "no plan is told";
  EXPECT_TRUE(step_.componentsAndVersions().isNil());
  EXPECT_FALSE(step_.removeComponents({"A"}));
}

TEST_F(ReceiptService, RemovesTheFilesOfTheComponentsAskedForAndOfNoOthers) {
  const std::string one = directory().write("one", "1");
  const std::string two = directory().write("two", "2");
  writeComponent("A", {file(one)});
  writeComponent("B", {file(two)});
  const tests::CapturedLog log;
  EXPECT_TRUE(step_.removeComponents({"A", "unknown"}));
  EXPECT_FALSE(std::filesystem::exists(one));
  EXPECT_TRUE(std::filesystem::exists(two));
  EXPECT_EQ(step_.installerState(), QVNInstallerStateSuccess);
  EXPECT_TRUE(log.contains("Notice", "\"receiptService.removeComponents\" success: YES"));
  EXPECT_NE(std::ranges::find(run_.states, QVNInstallerStateRemoving), run_.states.end());
  EXPECT_EQ(run_.states.back(), QVNInstallerStateSuccess);
}

TEST_F(ReceiptService, ARemovalThatFailsIsNoWithTheStateOfTheFailure) {
  writeComponent("A", {file("/Library")});
  const tests::CapturedLog log;
  EXPECT_FALSE(step_.removeComponents({"A"}));
  EXPECT_EQ(run_.states.back(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains("Notice", "\"receiptService.removeComponents\" success: NO"));
}

TEST_F(ReceiptService, ARemovalThatWasCancelledIsNoThoughItsStepsSucceeded) {
  run_.cancelled = true;
  const tests::CapturedLog log;
  EXPECT_FALSE(step_.removeComponents({"A"}));
  EXPECT_EQ(step_.installerState(), QVNInstallerStateCancelled);
}

TEST_F(ReceiptService, ProgressBetweenRequestsIsZero) {
  EXPECT_EQ(step_.getProgress(), 0U);
  const tests::CapturedLog log;
  static_cast<void>(step_.fixPlanForValidation());
  EXPECT_EQ(step_.getProgress(), 0U);
}

/// Asks for the step's progress whenever the run is told a state, as a watcher does.
class AskingRun : public tests::FakeStepContext {
 public:
  using FakeStepContext::FakeStepContext;
  void setInstallerState(QVNInstallerState state) override {
    FakeStepContext::setInstallerState(state);
    progress.push_back(step->getProgress());
  }
  QVNReceiptServiceStrategy* step = nullptr;
  std::vector<std::uint64_t> progress;
};

TEST_F(ReceiptService, ProgressDuringARequestIsThatOfItsStep) {
  AskingRun run(path());
  run.configuration() = run_.configuration();
  QVNReceiptServiceStrategy step({}, "receiptService", nullptr, run, nullptr, receipts_);
  run.step = &step;
  const tests::CapturedLog log;
  static_cast<void>(step.fixPlanForValidation());
  ASSERT_FALSE(run.progress.empty());
  EXPECT_GT(run.progress.front(), 0U);
}

TEST_F(ReceiptService, ToldToEndItEndsTheServiceForWatchersToo) {
  const tests::CapturedLog log;
  step_.shutdownService();
  EXPECT_EQ(receipts_.statusServiceShutdowns, 1);
  EXPECT_TRUE(log.contains("Debug", "received shutDownService message for receipt service"));
}

}  // namespace
}  // namespace deployer
