#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "general/ipc/RemoteException.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRunFolder.h"
#include "tests/support/VendedService.h"

namespace deployer {
namespace {

using foundation::PropertyList;
using Texts = std::vector<std::string>;

class RememberingRun : public QVNInstallationStatusProtocol {
 public:
  std::int32_t getCurrentState() override { return note("getCurrentState", 15); }
  std::int64_t getProgress() override { return note("getProgress", 40); }
  void cancelInstallation() override { note("cancelInstallation", 0); }
  void shutdownService() override { note("shutdownService", 0); }

  Texts asked;

 private:
  int note(const std::string& operation, int answer) {
    asked.push_back(operation);
    return answer;
  }
};

TEST(StatusProtocol, NamesTheServiceOfAProcess) {
  EXPECT_EQ(statusServiceNameOfProcess(4242), "com.corvane.installer.4242");
}

TEST(StatusProtocol, EverySelectorReachesItsOperationAndBringsItsResult) {
  RememberingRun run;
  const ipc::Target target = targetFor(run);
  EXPECT_EQ(target("getCurrentState", {}).integer(), 15);
  EXPECT_EQ(target("getProgress", {}).integer(), 40);
  EXPECT_TRUE(target("cancelInstallation", {}).isNil());
  EXPECT_TRUE(target("shutdownService", {}).isNil());
  EXPECT_EQ(run.asked, (Texts{"getCurrentState", "getProgress", "cancelInstallation", "shutdownService"}));
}

/// A proxy and, where a test wants one, the service that it stands for.
class StatusProxy : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const auto reason = tests::enterPrivateRunFolder()) {
      GTEST_SKIP() << *reason;
    }
    proxy_ = QVNInstallationStatusProxy::ofService(kName);
  }
  void serve(ipc::Target target) { service_.emplace(kName, kQVNInstallationStatusProtocol, std::move(target)); }

  static constexpr const char* kName = "com.corvane.installer.77";
  std::optional<tests::VendedService> service_;
  std::unique_ptr<QVNInstallationStatusProxy> proxy_;
};

TEST_F(StatusProxy, HandsOverWhatIsAnsweredSuccessIncluded) {
  serve([](std::string_view selector, auto) { return PropertyList(std::int64_t{selector == "getProgress" ? 40 : 0}); });
  EXPECT_EQ(proxy_->answeredState(), 0);
  EXPECT_EQ(proxy_->answeredProgress(), 40);
  EXPECT_EQ(proxy_->getCurrentState(), 0);
  EXPECT_EQ(proxy_->getProgress(), 40);
}

TEST_F(StatusProxy, WithoutAServiceThereIsNoAnswerThoughTheStateReadsLikeSuccess) {
  EXPECT_EQ(proxy_->answeredState(), std::nullopt);
  EXPECT_EQ(proxy_->answeredProgress(), std::nullopt);
  EXPECT_EQ(proxy_->getCurrentState(), 0);
  EXPECT_EQ(proxy_->getProgress(), 0);
  EXPECT_FALSE(proxy_->remote().recentException());
}

TEST_F(StatusProxy, ACallThatRaisedIsNoAnswer) {
  serve([](std::string_view, auto) -> PropertyList { throw ipc::RemoteException(ipc::kGenericException, "broken"); });
  const tests::CapturedLog log;
  EXPECT_EQ(proxy_->answeredState(), std::nullopt);
  EXPECT_TRUE(proxy_->remote().recentException());
  EXPECT_EQ(proxy_->getCurrentState(), 0);
}

TEST_F(StatusProxy, AnAnswerOfAnotherTypeIsNone) {
  serve([](std::string_view, auto) { return PropertyList("0"); });
  const tests::CapturedLog log;
  EXPECT_EQ(proxy_->answeredState(), std::nullopt);
  EXPECT_EQ(proxy_->answeredProgress(), std::nullopt);
}

TEST_F(StatusProxy, WithoutAServicesNameNobodyIsAsked) {
  EXPECT_FALSE(QVNInstallationStatusProxy::ofService(std::nullopt)->remote().respondsToSelector("getCurrentState"));
}

}  // namespace
}  // namespace deployer
