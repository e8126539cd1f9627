#include <chrono>

#include "tests/integration/WatchedEngineInRoot.h"

namespace tests {
namespace {

using support::Outcome;
using support::RunningProgram;
using support::Snapshot;

/// What programs of an ordinary user (501) send to a run that root watches, and what they put in its way beforehand.
/// Whatever it is: the run ends as it would have ended, root's watcher sees that, and nothing but the product changes.
class SecondAccount : public WatchedEngineInRoot {
 protected:
  static constexpr const char* kPeer = "/run/raw-peer";
  static constexpr const char* kServices = "/run/com.corvane.installer";
  static constexpr long kMostGrowthInKilobytes = 16L * 1024;

  [[nodiscard]] bool needsProc() const override { return true; }
  void prepare() override {
    WatchedEngineInRoot::prepare();
    root().copyIn(CORVANE_RAW_PEER, kPeer);
    makeProductThatWaits();
    root().makeDirectory("/Users/Shared", 01777);
    root().writeFile("/Users/Shared/mine", "mine", 0644, 501, 20);
    outside_ = outside();
  }

  static std::string socketOf(const RunningProgram& engine) {
    return std::string(kServices) + "/" + serviceNameOf(engine);
  }
  static std::vector<std::string> peerCommand(const RunningProgram& engine, std::vector<std::string> commands) {
    commands.insert(commands.begin(), {kPeer, socketOf(engine)});
    return commands;
  }
  /// What a program of the user prints that sends this to the service.
  std::string sendAsUser(const RunningProgram& engine, const std::vector<std::string>& commands) {
    return root().run(peerCommand(engine, commands), asUser()).standardOutput;
  }
  /// The same from a program that keeps what stays of its connections.
  RunningProgram holdAsUser(const RunningProgram& engine, std::vector<std::string> commands,
                            const support::RunOptions& surroundings = asUser()) {
    commands.emplace_back("hold");
    auto peer = root().start(peerCommand(engine, std::move(commands)), surroundings);
    EXPECT_TRUE(peer.waitForStandardOutput("holding")) << peer.standardOutputSoFar();
    return peer;
  }
  static support::RunOptions asOtherUser() {
    support::RunOptions options = asUser();
    options.user = 502;
    return options;
  }

  /// An engine in the middle of its work, and root's own program that watches it.
  struct Run {
    RunningProgram engine;
    RunningProgram watcher;
    long descriptors;
    long kilobytes;
  };
  Run startRun() {
    auto engine = startWatchedInstall();
    waitForProgram(engine);
    auto watcher = startWatcher(engine, {"observe", "follow", "progress", "shutdown", "await-end"});
    EXPECT_TRUE(watcher.waitForStandardOutput("state 17\n")) << watcher.standardOutputSoFar();
    // Those of starting the product's program may be among them, so this is the most that may be there later.
    const long descriptors = descriptorsOf(engine);
    const long kilobytes = kilobytesOf(engine);
    return {std::move(engine), std::move(watcher), descriptors, kilobytes};
  }
  void expectThatNothingStays(const Run& run) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (descriptorsOf(run.engine) > run.descriptors && std::chrono::steady_clock::now() < deadline) {
    }
    EXPECT_LE(descriptorsOf(run.engine), run.descriptors);
    if (std::string_view(CORVANE_SANITIZERS).empty()) {
      EXPECT_LT(kilobytesOf(run.engine), run.kilobytes + kMostGrowthInKilobytes);
    }
  }
  Outcome expectGoodEnd(Run& run) {
    letGoOn();
    Outcome outcome = run.engine.wait();
    EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
    const std::string seen = run.watcher.wait().standardOutput;
    EXPECT_TRUE(seen.ends_with("state 0\nprogress 100\nshutdown sent\nended\n")) << seen;
    expectProductAlone();
    return outcome;
  }
  void expectProductAlone() {
    EXPECT_TRUE(root().exists(kReceipt));
    EXPECT_EQ(root().readFile("/opt/guard/wait"), "#!/bin/sh\nread line </run/gate\n");
    EXPECT_EQ(root().readFile("/Library/LaunchDaemons/com.corvane.guard.plist"), "<plist/>");
    expectNothingElseChanged();
  }
  void expectNothingElseChanged() { EXPECT_EQ(support::difference(outside(), outside_), ""); }

  long descriptorsOf(const RunningProgram& engine) {
    return numberFrom("ls /proc/" + std::to_string(engine.process()) + "/fd | wc -l");
  }
  long kilobytesOf(const RunningProgram& engine) {
    return numberFrom("sed -n 's/^VmRSS:[^0-9]*\\([0-9]*\\).*/\\1/p' /proc/" + std::to_string(engine.process()) +
                      "/status");
  }

 private:
  long numberFrom(const std::string& command) { return std::stol(root().shell(command).standardOutput); }
  Snapshot outside() {
    Snapshot all;
    for (const char* place : {"/etc", "/Users", "/Applications", "/System", "/Volumes", "/bin", "/dev"}) {
      const Snapshot more = root().snapshot(place);
      all.insert(all.end(), more.begin(), more.end());
    }
    return all;
  }

  Snapshot outside_;
};

TEST_F(SecondAccount, SendsWhatIsNoMessageAndLosesItsConnections) {
  Run run = startRun();
  EXPECT_EQ(sendAsUser(run.engine, {"garbage", "oversized", "stranger", "forge"}),
            "ended 5\nended 1\nended 1\nended 2\n");
  expectThatNothingStays(run);
  EXPECT_EQ(watch(run.engine, {"state"}, asUser()), "state 17\n");
  expectGoodEnd(run);
}

TEST_F(SecondAccount, SendsHalfFramesAndKeepsNobodyWaiting) {
  Run run = startRun();
  auto peer = holdAsUser(run.engine, std::vector<std::string>(10, "half"));
  EXPECT_EQ(watch(run.engine, {"state"}, asUser()), "state 17\n");
  EXPECT_EQ(watch(run.engine, {"state"}), "state 17\n");
  peer.kill(SIGKILL);
  expectThatNothingStays(run);
  // Those that stay to the end of the run do not put it off.
  auto stubborn = holdAsUser(run.engine, std::vector<std::string>(10, "half"));
  expectGoodEnd(run);
}

TEST_F(SecondAccount, AsksAThousandQuestionsAtOnceAndIsAnswered) {
  Run run = startRun();
  EXPECT_EQ(sendAsUser(run.engine, {"ask", "1000", "ask", "1", "ask", "1", "ask", "1"}),
            "answered 1000\nanswered 1\nanswered 1\nanswered 1\n");
  expectThatNothingStays(run);
  expectGoodEnd(run);
}

TEST_F(SecondAccount, ReadsNoAnswersAndIsDropped) {
  Run run = startRun();
  EXPECT_EQ(sendAsUser(run.engine, std::vector<std::string>(4, "deaf")), "dropped\ndropped\ndropped\ndropped\n");
  expectThatNothingStays(run);
  expectGoodEnd(run);
}

TEST_F(SecondAccount, OpensTwoHundredConnectionsAndKeepsNobodyOut) {
  constexpr long kPlacesOfAUser = 16;
  Run run = startRun();
  auto peer = holdAsUser(run.engine, {"connect", "200"});
  auto other = holdAsUser(run.engine, {"connect", "200"}, asOtherUser());
  EXPECT_EQ(watch(run.engine, {"state"}, asUser()), "state 17\n");
  EXPECT_EQ(watch(run.engine, {"state"}, asOtherUser()), "state 17\n");
  EXPECT_EQ(watch(run.engine, {"state"}), "state 17\n");
  EXPECT_LE(descriptorsOf(run.engine), run.descriptors + 2 * kPlacesOfAUser + 1);
  peer.kill(SIGKILL);
  other.kill(SIGKILL);
  expectThatNothingStays(run);
  auto stubborn = holdAsUser(run.engine, {"connect", "200"});
  expectGoodEnd(run);
}

TEST_F(SecondAccount, ForgesNoNotificationThatRootsListenersHear) {
  auto listener = startListener(kBundle);
  Run run = startRun();
  const std::string forge =
      "for socket in " + std::string(kServices) + "/observers/*; do " + kPeer + " $socket forge; done";
  EXPECT_EQ(root().shell(forge, asUser()).standardOutput, "refused\n");
  const Outcome outcome = expectGoodEnd(run);
  std::string everything = "listening\ncom.corvane.installer.deployer.started " + std::string(kBundle) + " " +
                           serviceNameOf(run.engine) + "\n";
  const std::string update = "com.corvane.installer.update " + std::string(kBundle) + " \n";
  for (const LoggedMessage& message : parseLog(outcome.standardError)) {
    everything += message.text.find("\n\tposting com.corvane.installer.update to ") != std::string::npos ? update : "";
  }
  ASSERT_TRUE(listener.waitForStandardOutput(everything)) << listener.standardOutputSoFar();
  EXPECT_EQ(listener.standardOutputSoFar(), everything);
  // From root it would have been heard.
  EXPECT_EQ(root().shell(forge).standardOutput, "ended 2\n");
  EXPECT_TRUE(listener.waitForStandardOutput(everything + update)) << listener.standardOutputSoFar();
}

TEST_F(SecondAccount, ReachesNoServiceOfAReceipt) {
  Run run = startRun();
  expectGoodEnd(run);
  auto receipt = root().start({std::string(kReceipt) + "/Contents/MacOS/InstallationDeployer", "--receipt"});
  ASSERT_TRUE(receipt.waitForStandardError("posting com.corvane.installer.receipt.started"))
      << receipt.standardErrorSoFar();
  const std::string socket =
      std::string(kServices) + "/com.corvane.installer.receipt." + std::to_string(receipt.process());
  EXPECT_EQ(root().run({kPeer, socket, "garbage"}, asUser()).standardOutput, "refused\n");
  EXPECT_EQ(root().run({kPeer, socket, "garbage"}).standardOutput, "ended 5\n");
  EXPECT_TRUE(receipt.isRunning());
}

TEST_F(SecondAccount, TakesNoNameWhereRootsServicesAre) {
  Run run = startRun();
  EXPECT_EQ(root().run({kWatcher, "vend", "com.corvane.installer.99"}, asUser()).exitCode, 2);
  for (const char* attempt :
       {"mkdir $F/com.corvane.installer.99", "ln -s /Users/Shared $F/observers/x", "touch $F/.lock",
        "rm -f $F/com.corvane.installer.*", "mv $F /run/elsewhere", "echo >$F/.productGuard"}) {
    EXPECT_FALSE(root().shell("F=" + std::string(kServices) + "; " + attempt, asUser()).succeeded()) << attempt;
  }
  expectGoodEnd(run);
}

TEST_F(SecondAccount, WhoMadeTheFolderOfServicesFirstStopsTheRunAndIsGivenNothing) {
  ASSERT_TRUE(root().shell("chmod 01777 /run").succeeded());
  for (const char* trap : {"mkdir", "mkdir -m 0777", "ln -s /Users/Shared", "touch", "mkfifo"}) {
    ASSERT_TRUE(root().shell(std::string(trap) + " " + kServices, asUser()).succeeded());
    const Snapshot before = root().snapshot(kServices);
    const Outcome outcome = runEngine({"--ui", "--install"});
    EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
    EXPECT_TRUE(loggedAnything(outcome, "Error")) << trap;
    EXPECT_EQ(root().snapshot(kServices), before) << trap;
    EXPECT_FALSE(root().exists("/opt/guard"));
    EXPECT_FALSE(root().exists(kReceipt));
    expectNothingElseChanged();
    ASSERT_TRUE(root().shell("rm -r " + std::string(kServices)).succeeded());
  }
  Run run = startRun();
  expectGoodEnd(run);
}

}  // namespace
}  // namespace tests
