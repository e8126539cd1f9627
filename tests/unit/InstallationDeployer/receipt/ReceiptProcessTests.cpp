#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include "InstallationDeployer/receipt/ReceiptProcess.h"
#include "general/foundation/execution/RunLoop.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/TemporaryDirectory.h"

namespace deployer {
namespace {

using Texts = std::vector<std::string>;

/// With shell scripts in the place of the receipt's engine.
class ReceiptProcessTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(mkfifo(directory_.path("gate").c_str(), 0600), 0); }

  bool start(const std::string& script) {
    const std::string path = directory_.write("engine", "#!/bin/sh\ncd " + directory_.path() + "\n" + script + "\n");
    EXPECT_EQ(chmod(path.c_str(), 0700), 0);
    return process_.start(path);
  }
  [[nodiscard]] std::string engine() const { return directory_.path("engine"); }
  void killEngine() { EXPECT_EQ(kill(process_.processIdentifier(), SIGKILL), 0); }

  static constexpr std::chrono::seconds kLong{60};
  static constexpr const char* kStaysUntilKilled = "read never <>gate";
  tests::TemporaryDirectory directory_;
  ReceiptProcess process_;
};

TEST_F(ReceiptProcessTest, IsNoneUntilItIsStarted) {
  EXPECT_FALSE(process_.isStarted());
  EXPECT_EQ(process_.processIdentifier(), 0);
  EXPECT_FALSE(process_.hasVanished());
}

TEST_F(ReceiptProcessTest, AnEngineThatCannotBeStartedIsNamedInTheLog) {
  const tests::CapturedLog log;
  EXPECT_FALSE(process_.start(directory_.path("missing")));
  EXPECT_FALSE(process_.isStarted());
  ASSERT_EQ(log.texts("Error").size(), 1U);
  EXPECT_TRUE(log.texts("Error").front().starts_with("Failed to launch receipt  at " + directory_.path("missing")));
}

TEST_F(ReceiptProcessTest, StartsTheEngineAsAReceipt) {
  ASSERT_TRUE(start("echo \"$@\" >arguments"));
  EXPECT_TRUE(process_.awaitEnd(kLong));
  std::ifstream file(directory_.path("arguments"));
  std::string arguments;
  std::getline(file, arguments);
  EXPECT_EQ(arguments, "--receipt");
  EXPECT_FALSE(process_.isStarted());
}

TEST_F(ReceiptProcessTest, WaitsForServicesUntilTheFlagIsCleared) {
  ASSERT_TRUE(start(kStaysUntilKilled));
  bool areAwaited = true;
  const auto timer = foundation::RunLoop::current()->addTimer(std::chrono::milliseconds(1), false,
                                                              [&areAwaited] { areAwaited = false; });
  process_.awaitServices(areAwaited, [] {});
  EXPECT_FALSE(areAwaited);
  killEngine();
}

TEST_F(ReceiptProcessTest, LooksForServicesThatNobodyHeardOf) {
  ASSERT_TRUE(start(kStaysUntilKilled));
  bool areAwaited = true;
  int looks = 0;
  process_.awaitServices(areAwaited, [&] { areAwaited = ++looks < 2; });
  EXPECT_EQ(looks, 2);
  killEngine();
}

TEST_F(ReceiptProcessTest, OneThatDoesNotEndIsStillStarted) {
  ASSERT_TRUE(start(kStaysUntilKilled));
  EXPECT_FALSE(process_.awaitEnd(std::chrono::milliseconds(1)));
  EXPECT_TRUE(process_.isStarted());
  killEngine();
}

TEST_F(ReceiptProcessTest, NoWaitForServicesOutlastsTheProcess) {
  const tests::CapturedLog log;
  ASSERT_TRUE(start("exit 3"));
  const bool areAwaited = true;
  process_.awaitServices(areAwaited, [] {});
  EXPECT_EQ(log.texts("Error"),
            Texts{"The receipt process " + engine() + " ended before its services could be reached (exit status 3)."});
}

TEST_F(ReceiptProcessTest, AnEndIsReportedOnceToWhoCouldNotReachIt) {
  const tests::CapturedLog log;
  ASSERT_TRUE(start(kStaysUntilKilled));
  killEngine();
  EXPECT_TRUE(process_.hasVanished());
  EXPECT_TRUE(process_.hasVanished());
  EXPECT_EQ(log.texts("Error"), Texts{"The receipt process " + engine() + " ended unexpectedly (signal 9)."});
}

TEST_F(ReceiptProcessTest, OneThatLivesHasNotVanishedHoweverUnreachable) {
  const tests::CapturedLog log;
  ASSERT_TRUE(start(kStaysUntilKilled));
  EXPECT_FALSE(process_.hasVanished());
  EXPECT_TRUE(log.texts("Error").empty());
  killEngine();
}

}  // namespace
}  // namespace deployer
