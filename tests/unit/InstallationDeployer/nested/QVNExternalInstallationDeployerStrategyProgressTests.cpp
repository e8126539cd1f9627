#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <string>
#include <thread>

#include "general/ipc/CorvaneDistantObject.h"
#include "tests/unit/InstallationDeployer/nested/ExternalDeployerTest.h"

namespace deployer {
namespace {

TEST_F(ExternalDeployer, ProgressIsTheEnginesOnceItCanBeReached) {
  auto& step = makeStepFor("progress-40,gate,start,gate,progress-250,gate,0,await-end");
  EXPECT_EQ(step.getProgress(), 0U);
  const CapturedLog log;
  std::thread watcher([&] {
    EXPECT_EQ(step.getProgress(), 0U);
    openGate();
    waitForLog(log, "[externalDeployer setInstallerState:11]");
    EXPECT_EQ(step.getProgress(), 40U);
    EXPECT_EQ(step.getProgress(), 40U);
    openGate();
    // Nothing is believed that is no percentage.
    waitUntil([&] { return step.getProgress() == 100; });
    openGate();
  });
  EXPECT_TRUE(step.execute(true));
  watcher.join();
  EXPECT_EQ(step.getProgress(), 100U);
}

TEST_F(ExternalDeployer, ThatHasFallenSilentHoldsUpAWatcherOnlyOnce) {
  const double usual = ipc::gTimeoutInterval;
  constexpr double kForEver = 1000;
  auto& step = makeStepFor("progress-40,start,gate,stop,0,await-end");
  const CapturedLog log;
  std::thread watcher([&] {
    waitForLog(log, "[externalDeployer setInstallerState:11]");
    EXPECT_EQ(step.getProgress(), 40U);
    openGate();
    waitUntil([&] {
      return contentOf("/proc/" + std::to_string(engineProcess()) + "/stat").find(") T ") != std::string::npos;
    });
    ipc::gTimeoutInterval = 0.1;
    EXPECT_EQ(step.getProgress(), 40U);
    // From here on, a watcher who asks the engine waits for ever.
    ipc::gTimeoutInterval = kForEver;
    EXPECT_EQ(step.getProgress(), 40U);
    EXPECT_EQ(step.getProgress(), 40U);
    kill(engineProcess(), SIGCONT);
  });
  EXPECT_TRUE(step.execute(true));
  watcher.join();
  ipc::gTimeoutInterval = usual;
}

TEST_F(ExternalDeployer, ProgressCanBeAskedForAtAnyTime) {
  std::string script = "start";
  for (int i = 0; i < 50; ++i) {
    script += i % 2 == 0 ? ",15" : ",16";
    script += ",progress-" + std::to_string(i);
  }
  auto& step = makeStepFor(script + ",0,await-end");
  std::atomic<bool> isOver = false;
  std::thread watcher([&] {
    std::uint64_t last = 0;
    while (!isOver) {
      const std::uint64_t now = step.getProgress();
      EXPECT_GE(now, last);
      last = now;
    }
  });
  EXPECT_TRUE(step.execute(true));
  isOver = true;
  watcher.join();
}

}  // namespace
}  // namespace deployer
