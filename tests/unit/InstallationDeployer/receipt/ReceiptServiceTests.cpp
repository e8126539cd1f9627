#include <gtest/gtest.h>

#include <algorithm>

#include "InstallationDeployer/receipt/QVNReceiptClient.h"
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
    writeIndex(dictionary({{"Products", dictionary({{"P", product({localPayload({"A", "B"})})}})}}));
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

/// What the client does without a receipt process.
class ReceiptClient : public ReceiptService {
 protected:
  static ipc::Notification started(const PropertyList& serviceName) {
    return {"started", "object", dictionary({{"serviceName", serviceName}})};
  }
  QVNReceiptClient client_;
};

TEST_F(ReceiptClient, WithoutATaskShutdownSucceedsWithoutAnyMessage) {
  const tests::CapturedLog log;
  EXPECT_TRUE(client_.shutdownReceiptService());
  EXPECT_EQ(log.text(), "");
}

TEST_F(ReceiptClient, KeepsTheNameOfTheServiceThatAnnouncedItselfLast) {
  const tests::CapturedLog log;
  client_.handleReceiptStartNotification(started("com.corvane.installer.receipt.1"));
  EXPECT_EQ(client_.receiptServiceName(), "com.corvane.installer.receipt.1");
  client_.handleReceiptStatusStartNotification(started("com.corvane.installer.1"));
  EXPECT_EQ(client_.receiptServiceName(), "com.corvane.installer.1");
  EXPECT_NE(client_.receiptProxy(), nullptr);
  EXPECT_NE(client_.receiptStatusProxy(), nullptr);
}

TEST_F(ReceiptClient, TalksToTheReceiptWithRetriesAndToItsStatusServiceWithout) {
  const tests::CapturedLog log;
  client_.handleReceiptStartNotification(started("one"));
  client_.handleReceiptStatusStartNotification(started("two"));
  const auto& receipt = dynamic_cast<QVNInstallationReceiptProxy&>(*client_.receiptProxy()).remote();
  EXPECT_EQ(receipt.remoteServerName(), "one");
  EXPECT_EQ(receipt.protocolName(), "QVNInstallationReceiptProtocol");
  EXPECT_TRUE(receipt.retryAfterException());
  const auto& status = dynamic_cast<QVNInstallationStatusProxy&>(*client_.receiptStatusProxy()).remote();
  EXPECT_EQ(status.remoteServerName(), "two");
  EXPECT_EQ(status.protocolName(), "QVNInstallationStatusProtocol");
  EXPECT_FALSE(status.retryAfterException());
  EXPECT_FALSE(receipt.serverDidStartNotificationName() || status.serverDidStartNotificationName());
}

TEST_F(ReceiptClient, AnAnnouncementWithoutAServiceNameGivesAProxyThatReachesNobody) {
  const tests::CapturedLog log;
  client_.handleReceiptStartNotification(started(5));
  EXPECT_EQ(client_.receiptServiceName(), std::nullopt);
  EXPECT_FALSE(dynamic_cast<QVNInstallationReceiptProxy&>(*client_.receiptProxy())
                   .remote()
                   .respondsToSelector("shutdownService"));
}

TEST_F(ReceiptClient, MirrorsNothingWithoutAThreadThatServesWatchers) {
  client_.setStrategy(&step_);
  const tests::CapturedLog log;
  client_.startUpdatingCurrentStepStatusFromReceipt();
  client_.stopUpdatingCurrentStepStatusFromReceipt();
  EXPECT_EQ(log.text(), "");
}

TEST_F(ReceiptClient, MirrorsNothingOnAThreadThatHasEnded) {
  std::shared_ptr<foundation::RunLoop> loop;
  {
    const foundation::NamedThread thread("status server thread", [&loop] { loop = foundation::RunLoop::current(); });
  }
  QVNReceiptClient client(loop);
  client.setStrategy(&step_);
  const tests::CapturedLog log;
  client.startUpdatingCurrentStepStatusFromReceipt();
  client.stopUpdatingCurrentStepStatusFromReceipt();
  EXPECT_EQ(log.text(), "");
}

}  // namespace
}  // namespace deployer
