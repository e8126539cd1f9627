#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "frontend/watch/RunFollower.h"
#include "general/ipc/ServiceFolder.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRunFolder.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/frontend/watch/StandInService.h"

namespace frontend {
namespace {

using namespace deployer;
using foundation::RunLoop;

class RunFollowerTest : public ::testing::Test, protected RunListener {
 protected:
  void SetUp() override {
    if (const auto reason = tests::enterPrivateRunFolder()) {
      GTEST_SKIP() << *reason;
    }
  }
  void watching(int processIdentifier) override { heard_ += "watching " + std::to_string(processIdentifier) + "\n"; }
  void unreachable() override {
    heard_ += "unreachable\n";
    atUnreachable_();
  }
  void orderRefused(const std::string& reason) override { heard_ += "refused: " + reason + "\n"; }
  void stateChanged(QVNInstallerState state) override { heard_ += "state " + std::to_string(state) + "\n"; }
  void progressChanged(int percent) override { heard_ += "progress " + std::to_string(percent) + "\n"; }

  /// Follows an engine of somebody else; the stand-in is what it is reached through.
  RunEnd follow() {
    RunFollower follower(*this, process_);
    return follower.follow();
  }

  const int process_ = getpid();
  const std::string watching_ = "watching " + std::to_string(process_) + "\n";
  std::string heard_;
  std::function<void()> atUnreachable_ = [] {};
  const tests::CapturedLog log_;
};

TEST_F(RunFollowerTest, HearsOfEveryStateThoughNoneIsAnnouncedAndAcknowledgesTheLast) {
  const StandInService service(process_, {.states = {11, 11, 15, 21}, .progress = 40});
  const RunEnd end = follow();
  EXPECT_EQ(end.kind, RunEnd::Kind::Finished);
  EXPECT_EQ(end.state, QVNInstallerStateCancelled);
  EXPECT_EQ(heard_, watching_ + "state 11\nprogress 40\nstate 15\nstate 21\n");
  EXPECT_TRUE(service.wasShutDown);
}

TEST_F(RunFollowerTest, GoesOnWhenItsConnectionBreaks) {
  const StandInService service(process_, {.states = {11, 15, 16, 0}, .breakAfter = 2});
  EXPECT_EQ(follow().kind, RunEnd::Kind::Finished);
  EXPECT_EQ(heard_, watching_ + "state 11\nprogress 0\nstate 15\nstate 16\nstate 0\n");
  EXPECT_TRUE(service.wasShutDown);
}

TEST_F(RunFollowerTest, LosesARunWhoseServiceGoesAwayWithoutAFinalState) {
  const StandInService service(process_, {.states = {11}, .goneAfter = 2});
  const RunEnd end = follow();
  EXPECT_EQ(end.kind, RunEnd::Kind::Lost);
  EXPECT_NE(end.reason.find("has gone"), std::string::npos);
  EXPECT_FALSE(service.wasShutDown);
}

TEST_F(RunFollowerTest, CutsOffWhatIsNoPercentage) {
  {
    const StandInService service(process_, {.states = {11, 0}, .progress = INT64_MAX});
    static_cast<void>(follow());
  }
  const StandInService service(process_, {.states = {11, 0}, .progress = -5});
  static_cast<void>(follow());
  EXPECT_EQ(heard_, watching_ + "state 11\nprogress 100\nstate 0\n" + watching_ + "state 11\nprogress 0\nstate 0\n");
}

TEST_F(RunFollowerTest, PassesStatesOnThatItDoesNotKnow) {
  const StandInService service(process_, {.states = {99, -1, 0}});
  EXPECT_EQ(follow().kind, RunEnd::Kind::Finished);
  EXPECT_EQ(heard_, watching_ + "state 99\nprogress 0\nstate 4294967295\nstate 0\n");
}

TEST_F(RunFollowerTest, BelievesNoEngineThatCannotVouchForItself) {
  const StandInService service(process_, {.states = {0}, .isImpostor = true});
  const RunEnd end = follow();
  EXPECT_EQ(end.kind, RunEnd::Kind::Unwatched);
  EXPECT_NE(end.reason.find("does not let itself be watched"), std::string::npos) << end.reason;
  EXPECT_EQ(heard_, "");
  EXPECT_FALSE(service.wasShutDown);
}

TEST_F(RunFollowerTest, CancelsAsSoonAsTheEngineCanBeAsked) {
  const StandInService service(process_, {.states = {11, 0}});
  RunFollower follower(*this, process_);
  follower.cancel();
  EXPECT_FALSE(service.cancelled);
  EXPECT_EQ(follower.follow().kind, RunEnd::Kind::Finished);
  EXPECT_TRUE(service.cancelled);
}

TEST_F(RunFollowerTest, SaysThatTheEngineRefusedToBeCancelledAndEndsWithTheFinalStateThoughItMayNotRelease) {
  const StandInService service(process_, {.states = {11, 15, 0}, .refusesOrders = true});
  RunFollower follower(*this, process_);
  follower.cancel();
  const RunEnd end = follower.follow();
  EXPECT_EQ(end.kind, RunEnd::Kind::Finished);
  EXPECT_EQ(end.state, QVNInstallerStateSuccess);
  EXPECT_NE(heard_.find("state 11\nrefused: It is not yours.\n"), std::string::npos) << heard_;
  EXPECT_EQ(heard_.find("refused"), heard_.rfind("refused")) << heard_;
  EXPECT_FALSE(service.cancelled);
  EXPECT_FALSE(service.wasShutDown);
}

TEST_F(RunFollowerTest, LeavesTheRunWhenToldToAndAcknowledgesNothing) {
  const StandInService service(process_, {.states = {11}});
  const auto loop = RunLoop::current();
  {
    RunFollower follower(*this, process_);
    const auto timer = loop->addTimer(std::chrono::milliseconds(1), false, [&] { follower.detach(); });
    EXPECT_EQ(follower.follow().kind, RunEnd::Kind::Detached);
  }
  EXPECT_FALSE(service.wasShutDown);
  EXPECT_FALSE(loop->runUntil(RunLoop::Clock::now())) << "the follower left something in the loop";
}

/// With an engine of its own: a process that ends as it is told.
class RunFollowerWithEngine : public RunFollowerTest {
 protected:
  void SetUp() override {
    RunFollowerTest::SetUp();
    ASSERT_EQ(mkfifo(gate_.c_str(), 0600), 0);
    engine_.launch();
  }
  void TearDown() override {
    if (engine_.isRunning()) {
      kill(engine_.processIdentifier(), SIGKILL);
      engine_.waitUntilExit();
    }
  }
  void endEngine(const std::string& exitCode) { std::ofstream(gate_) << exitCode << "\n"; }

  tests::TemporaryDirectory folder_;
  const std::string gate_ = folder_.path("gate");
  foundation::Task engine_{"/bin/sh", {"-c", "read code <" + gate_ + "; exit $code"}};
};

TEST_F(RunFollowerWithEngine, TakesTheExitCodeWhereSomebodyElseAcknowledgedTheEnd) {
  int asked = 0;
  const StandInService service(engine_.processIdentifier(), {.states = {11}, .atEachState = [&] {
                                                               if (++asked == 2) {
                                                                 endEngine("3");
                                                               }
                                                             }});
  RunFollower follower(*this, engine_);
  const RunEnd end = follower.follow();
  EXPECT_EQ(end.kind, RunEnd::Kind::Finished);
  EXPECT_EQ(end.state, QVNInstallerStateIncompatibleProduct);
}

TEST_F(RunFollowerWithEngine, WaitsForAnEngineThatOnlyLostItsService) {
  auto service = std::make_unique<StandInService>(engine_.processIdentifier(),
                                                  StandInService::Script{.states = {11}, .goneAfter = 1});
  const foundation::NamedThread later("later", [&] {
    service.reset();
    endEngine("0");
  });
  RunFollower follower(*this, engine_);
  EXPECT_EQ(follower.follow().state, QVNInstallerStateSuccess);
  EXPECT_FALSE(engine_.isRunning());
}

TEST_F(RunFollowerWithEngine, SaysOnceThatItsEngineCannotBeReachedAndGoesOnWaiting) {
  atUnreachable_ = [this] { endEngine("0"); };
  RunFollower follower(*this, engine_, std::chrono::seconds(0));
  EXPECT_EQ(follower.follow().kind, RunEnd::Kind::Refused);
  EXPECT_EQ(heard_, "unreachable\n");
}

TEST_F(RunFollowerTest, DoesNotWatchTheEngineOfAReceipt) {
  const StandInService service(process_, {.states = {0}});
  const std::string socketOfReceipt =
      std::string(ipc::kServiceFolder) + "/com.corvane.installer.receipt." + std::to_string(process_);
  std::ofstream(socketOfReceipt).close();
  const RunEnd end = follow();
  std::filesystem::remove(socketOfReceipt);
  EXPECT_EQ(end.kind, RunEnd::Kind::Unwatched);
  EXPECT_NE(end.reason.find("is the engine of a receipt"), std::string::npos) << end.reason;
  EXPECT_EQ(heard_, "");
  EXPECT_FALSE(service.wasShutDown);
}

TEST_F(RunFollowerWithEngine, LosesAnEngineThatEndsWithSomethingThatIsNoFinalState) {
  const foundation::NamedThread later("later", [&] { endEngine("17"); });
  RunFollower follower(*this, engine_);
  const RunEnd end = follower.follow();
  EXPECT_EQ(end.kind, RunEnd::Kind::Lost);
  EXPECT_NE(end.reason.find("ended with exit status 17"), std::string::npos) << end.reason;
}

TEST_F(RunFollowerWithEngine, TellsARefusalFromALoss) {
  const foundation::NamedThread later("later", [&] { endEngine("1"); });
  RunFollower follower(*this, engine_);
  const RunEnd end = follower.follow();
  EXPECT_EQ(end.kind, RunEnd::Kind::Refused);
  EXPECT_EQ(end.state, QVNInstallerStateFailed);
  EXPECT_EQ(heard_, "");
}

}  // namespace
}  // namespace frontend
