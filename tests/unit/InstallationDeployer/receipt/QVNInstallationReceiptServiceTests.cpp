#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "InstallationDeployer/protocols/QVNInstallationReceiptProtocol.h"
#include "InstallationDeployer/receipt/QVNInstallationReceiptService.h"
#include "InstallationDeployer/receipt/QVNReceiptServiceStrategy.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakeReceiptContext.h"
#include "tests/support/FakeStepContext.h"
#include "tests/support/LoopThread.h"
#include "tests/support/PrivateRunFolder.h"
#include "tests/unit/InstallationDeployer/BundleFixture.h"

namespace deployer {
namespace {

constexpr const char* kName = "com.corvane.installer.receipt.77";

/// The service on a thread of its own, asked by a proxy.
class ReceiptServiceOverIpc : public ::testing::Test, protected tests::BundleFixture {
 protected:
  void SetUp() override {
    if (const auto reason = tests::enterPrivateRunFolder()) {
      GTEST_SKIP() << *reason;
    }
    run_.configuration().setProductName("P");
    writeIndex(dictionary({{"Products", dictionary({{"P", product({localPayload({"A"})})}})}}));
    writeManifest("A", dictionary({{"ComponentVersion", "1.0"}}));
    thread_ = std::make_unique<tests::LoopThread>("receipt");
    thread_->loop->perform([this] { service_ = QVNInstallationReceiptService::serviceWithName(kName, step_); }, true);
    ASSERT_NE(service_, nullptr);
    proxy_ = QVNInstallationReceiptProxy::ofService(kName);
  }
  void TearDown() override {
    if (thread_) {
      thread_->loop->perform([this] { service_.reset(); }, true);
    }
  }

  tests::FakeStepContext run_{path()};
  tests::FakeReceiptContext receipts_{path()};
  QVNReceiptServiceStrategy step_{{}, "receiptService", nullptr, run_, nullptr, receipts_};
  std::unique_ptr<tests::LoopThread> thread_;
  std::unique_ptr<QVNInstallationReceiptService> service_;
  std::unique_ptr<QVNInstallationReceiptProxy> proxy_;
};

TEST_F(ReceiptServiceOverIpc, AnswersWhatItsStepAnswers) {
  const tests::CapturedLog log;
  EXPECT_EQ(proxy_->componentsAndVersions(),
            array({dictionary({{"ComponentName", "A"}, {"ComponentVersion", "1.0"}})}));
  EXPECT_EQ(proxy_->fixPlanForValidation(), std::vector<std::string>{});
  EXPECT_FALSE(proxy_->remote().recentException());
}

TEST_F(ReceiptServiceOverIpc, TheWishToEndReachesItsStep) {
  const tests::CapturedLog log;
  proxy_->shutdownService();
  // Answered after the wish has been taken.
  EXPECT_FALSE(proxy_->componentsAndVersions().isNil());
  EXPECT_EQ(receipts_.statusServiceShutdowns, 1);
}

TEST_F(ReceiptServiceOverIpc, ANameThatIsTakenGivesNoService) {
  const tests::CapturedLog log;
  std::unique_ptr<QVNInstallationReceiptService> second;
  thread_->loop->perform([&] { second = QVNInstallationReceiptService::serviceWithName(kName, step_); }, true);
  EXPECT_EQ(second, nullptr);
}

}  // namespace
}  // namespace deployer
