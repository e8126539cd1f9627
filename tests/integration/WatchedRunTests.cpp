#include <sys/resource.h>

#include <regex>

#include "tests/integration/WatchedEngineInRoot.h"

namespace tests {
namespace {

using support::Outcome;
using support::RunningProgram;

class WatchedRun : public WatchedEngineInRoot {
 protected:
  static constexpr const char* kOtherBundle = "/Volumes/Other Image/Installer.app";

  static std::string startOf(const RunningProgram& engine, const std::string& object) {
    return "com.corvane.installer.deployer.started " + object + " " + serviceNameOf(engine) + "\n";
  }
  static std::string updateOf(const std::string& object) { return "com.corvane.installer.update " + object + " \n"; }
  static std::string repeated(const std::string& text, std::ptrdiff_t times) {
    std::string all;
    for (std::ptrdiff_t i = 0; i < times; ++i) {
      all += text;
    }
    return all;
  }
  /// How many changes of the state the engine announced about an object.
  static std::ptrdiff_t announced(const Outcome& outcome, const std::string& object) {
    const std::string tail = "\n\tposting com.corvane.installer.update to object: " + object;
    return std::ranges::count_if(parseLog(outcome.standardError),
                                 [&](const LoggedMessage& message) { return message.text.ends_with(tail); });
  }
  /// The states of the run, in order.
  static std::vector<std::string> statesOf(const Outcome& outcome) {
    const std::string mark = "[QVNInstallController setInstallerState:";
    std::vector<std::string> states;
    for (const LoggedMessage& message : parseLog(outcome.standardError)) {
      if (const auto found = message.text.find(mark); found != std::string::npos) {
        states.push_back(message.text.substr(found + mark.size(), message.text.find(']', found) - found - mark.size()));
      }
    }
    return states;
  }
  /// Whether both messages were logged, the first of them earlier.
  static bool loggedInOrder(const Outcome& outcome, std::string_view first, std::string_view second) {
    const auto messages = parseLog(outcome.standardError);
    const auto begins = [&](std::string_view beginning) {
      return std::ranges::find_if(messages,
                                  [&](const LoggedMessage& message) { return message.text.starts_with(beginning); });
    };
    return begins(first) < begins(second) && begins(second) != messages.end();
  }
};

TEST_F(WatchedRun, IsFollowedToItsEndAndEndsWhenItsWatcherSaysSo) {
  makeProductThatWaits();
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  auto watcher = startWatcher(engine, {"observe", "follow", "progress", "shutdown", "await-end"});
  ASSERT_TRUE(watcher.waitForStandardOutput("state 17\n")) << watcher.standardOutputSoFar();
  letGoOn();
  const Outcome outcome = engine.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  const std::string seen = watcher.wait().standardOutput;
  EXPECT_TRUE(std::regex_match(
      seen, std::regex("observing\nstate 17\n(state 1[58]\n)*state 0\nprogress 100\nshutdown sent\nended\n")))
      << seen;
  EXPECT_TRUE(root().exists(kReceipt));
  EXPECT_TRUE(logged(outcome, "Debug", "Shutting down service: " + serviceNameOf(engine) + " runLoopActive:NO"));
  EXPECT_TRUE(logged(outcome, "Notice", "Installation complete"));
}

TEST_F(WatchedRun, WithAnyNumberOfDescriptorsEndsByItselfOrWhenItsWatcherSaysSo) {
  bundle().stageFile("Core", "/opt/guard/core", "core");
  bundle().addComponent("Core", "1.0", kProduct);
  constexpr rlim_t kLastThatMatters = 24;
  rlim_t succeeded = 0;
  for (rlim_t descriptors = 4; descriptors <= 64; descriptors += descriptors < kLastThatMatters ? 1 : 10) {
    makeRoot();
    prepare();
    deliverBundle();
    support::RunOptions few;
    few.limits = {{RLIMIT_NOFILE, descriptors}};
    auto engine = startEngine({"--ui", "--install"}, few);
    // One without a service ends by itself; the others are told to.
    if (engine.waitForStandardError("self.runLoopShouldKeepRunning = 1")) {
      constexpr int kAttempts = 20;
      for (int attempt = 0; attempt < kAttempts && engine.isRunning(); ++attempt) {
        static_cast<void>(watch(engine, {"shutdown", "await-end"}));
      }
    }
    const Outcome outcome = engine.wait();
    ASSERT_FALSE(outcome.timedOut) << descriptors << "\n" << outcome.standardError;
    ASSERT_EQ(outcome.signal, 0) << descriptors << "\n" << outcome.standardError;
    EXPECT_TRUE(outcome.exitCode == 1 || root().exists(kReceipt)) << descriptors << "\n" << outcome.standardError;
    succeeded += outcome.exitCode == 0 ? 1U : 0U;
  }
  EXPECT_GE(succeeded, 5U);
}

TEST_F(WatchedRun, WaitsForItsWatcherAfterTheWork) {
  makeProductThatWaits();
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  letGoOn();
  waitForEndOfWork(engine);
  EXPECT_EQ(watch(engine, {"state", "state", "progress"}), "state 0\nstate 0\nprogress 100\n");
  EXPECT_TRUE(engine.isRunning());
  EXPECT_EQ(watch(engine, {"shutdown"}), "shutdown sent\n");
  const Outcome outcome = engine.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_TRUE(loggedInOrder(outcome, "Setting exit condition for the main run loop", "exiting startController"));
}

TEST_F(WatchedRun, AnnouncesItselfAndEveryChangeOfItsState) {
  makeProductThatWaits();
  auto listener = startListener(kBundle);
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  letGoOn();
  waitForEndOfWork(engine);
  ASSERT_EQ(watch(engine, {"shutdown"}), "shutdown sent\n");
  const Outcome outcome = engine.wait();
  const auto states = statesOf(outcome);
  ASSERT_GE(states.size(), 4U);
  EXPECT_EQ(states.front(), "11");
  EXPECT_EQ(states.back(), "0");
  // The first of them, Preparing, is set before there is a service.
  const auto updates = std::ssize(states) - 1;
  EXPECT_EQ(announced(outcome, kBundle), updates);
  const std::string everything = "listening\n" + startOf(engine, kBundle) + repeated(updateOf(kBundle), updates);
  EXPECT_TRUE(listener.waitForStandardOutput(everything)) << listener.standardOutputSoFar();
  EXPECT_TRUE(logged(outcome, "Debug",
                     "----- <status server thread>[QVNInstallationStatusService setupStatusService]\n\tposting "
                     "com.corvane.installer.deployer.started to object: " +
                         std::string(kBundle) + " with serviceName: " + serviceNameOf(engine)));
  EXPECT_TRUE(logged(outcome, "Debug",
                     "----- <main thread>[QVNInstallationStatusService stateUpdatedNotification]\n\tposting "
                     "com.corvane.installer.update to object: " +
                         std::string(kBundle)));
  EXPECT_TRUE(listener.isRunning());
}

TEST_F(WatchedRun, TellsThoseWhoAreConnectedAboutEveryChange) {
  makeProductThatWaits();
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  auto watcher = startWatcher(engine, {"observe", "state", "hear", "state"});
  ASSERT_TRUE(watcher.waitForStandardOutput("state 17\n")) << watcher.standardOutputSoFar();
  letGoOn();
  const std::string seen = watcher.wait().standardOutput;
  EXPECT_TRUE(
      seen.starts_with("observing\nstate 17\nheard com.corvane.installer.update " + std::string(kBundle) + "\nstate "))
      << seen;
  EXPECT_EQ(watch(engine, {"shutdown"}), "shutdown sent\n");
  EXPECT_EQ(engine.wait().exitCode, 0);
}

TEST_F(WatchedRun, CancelledBetweenStepsEndsWithTwentyOne) {
  makeProductThatWaits();
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  EXPECT_EQ(watch(engine, {"cancel", "state"}), "cancel sent\nstate 17\n");
  letGoOn();
  waitForEndOfWork(engine);
  EXPECT_EQ(watch(engine, {"state", "shutdown"}), "state 21\nshutdown sent\n");
  const Outcome outcome = engine.wait();
  EXPECT_EQ(outcome.exitCode, 21) << outcome.description();
  EXPECT_FALSE(root().exists(kReceipt));
  EXPECT_TRUE(logged(outcome, "Notice", "Installation complete"));
}

TEST_F(WatchedRun, FailureBeforeTheStepsIsPublishedAndWaitsForTheWatcher) {
  makeProductThatWaits();
  for (const auto& options :
       {std::vector<std::string>{"--ui", "--install", "--product_name", "../x"}, {"--ui", "--remove"}}) {
    auto listener = startListener(kBundle);
    auto engine = startEngine(options);
    waitForEndOfWork(engine);
    EXPECT_EQ(watch(engine, {"state", "progress", "shutdown"}), "state 1\nprogress 0\nshutdown sent\n");
    const Outcome outcome = engine.wait();
    EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
    EXPECT_TRUE(
        loggedInOrder(outcome, "Setting exit condition for the main run loop", "exiting startStatusServiceForError:"));
    EXPECT_FALSE(logged(outcome, "Notice", "Installation complete"));
    EXPECT_TRUE(listener.waitForStandardOutput("listening\n" + startOf(engine, kBundle) + updateOf(kBundle)))
        << listener.standardOutputSoFar();
  }
  EXPECT_FALSE(root().exists("/opt/guard/wait"));
}

TEST_F(WatchedRun, ToldToEndItsServiceBeforeTheWorkEndsNeitherAnswersNorWaits) {
  makeProductThatWaits();
  auto listener = startListener(kBundle);
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  EXPECT_EQ(watch(engine, {"shutdown", "await-end"}), "shutdown sent\nended\n");
  ASSERT_TRUE(engine.waitForStandardError("Shutting down service: ")) << engine.standardErrorSoFar();
  EXPECT_EQ(watch(engine, {"state"}), "no service\n");
  letGoOn();
  const Outcome outcome = engine.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_TRUE(loggedInOrder(outcome, "Shutting down service: ", "self.runLoopShouldKeepRunning = 0"));
  EXPECT_TRUE(root().exists(kReceipt));
  // Those who hear distributed notifications still do.
  const std::string everything =
      "listening\n" + startOf(engine, kBundle) + repeated(updateOf(kBundle), std::ssize(statesOf(outcome)) - 1);
  EXPECT_TRUE(listener.waitForStandardOutput(everything)) << listener.standardOutputSoFar();
}

TEST_F(WatchedRun, TwoAtOnceHaveNamesOfTheirOwnAndAreHeardApart) {
  makeProductThatWaits();
  root().copyIn(bundle().path(), kOtherBundle);
  auto listener = startListener(kBundle);
  auto otherListener = startListener(kOtherBundle);
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  auto watcher = startWatcher(engine, {"observe", "hear"});
  ASSERT_TRUE(watcher.waitForStandardOutput("observing\n"));

  auto other = root().start({std::string(kOtherBundle) + "/Contents/MacOS/InstallationDeployer", "--ui", "--install",
                             "--product_name", "../x"});
  waitForEndOfWork(other);
  EXPECT_NE(serviceNameOf(engine), serviceNameOf(other));
  EXPECT_EQ(watch(other, {"state", "cancel", "shutdown"}), "state 1\ncancel sent\nshutdown sent\n");
  EXPECT_EQ(other.wait().exitCode, 1);
  EXPECT_EQ(watch(engine, {"state"}), "state 17\n");
  EXPECT_EQ(watcher.standardOutputSoFar(), "observing\n");

  letGoOn();
  waitForEndOfWork(engine);
  EXPECT_EQ(watch(engine, {"state", "shutdown"}), "state 0\nshutdown sent\n");
  const Outcome outcome = engine.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(watcher.wait().standardOutput,
            "observing\nheard com.corvane.installer.update " + std::string(kBundle) + "\n");
  const std::string everything =
      "listening\n" + startOf(engine, kBundle) + repeated(updateOf(kBundle), std::ssize(statesOf(outcome)) - 1);
  ASSERT_TRUE(listener.waitForStandardOutput(everything)) << listener.standardOutputSoFar();
  EXPECT_EQ(listener.standardOutputSoFar(), everything);
  const std::string everythingOther = "listening\n" + startOf(other, kOtherBundle) + updateOf(kOtherBundle);
  ASSERT_TRUE(otherListener.waitForStandardOutput(everythingOther)) << otherListener.standardOutputSoFar();
  EXPECT_EQ(otherListener.standardOutputSoFar(), everythingOther);
}

TEST_F(WatchedRun, CanBeAskedForItsFourOperationsAndNothingElse) {
  makeProductThatWaits();
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  const std::string refused = "exception NSInvalidArgumentException\n";
  for (const char* selector : {"startServer", "shutdownStatusServer", "setInstallerState:", "stateUpdatedNotification",
                               "waitForServiceCompletion", "controller", "getCurrentState:", ""}) {
    EXPECT_EQ(watch(engine, {"call", selector}), refused) << selector;
    EXPECT_TRUE(watch(engine, {"send", selector, "state"}).starts_with("sent")) << selector;
  }
  // Nor as calls of the other kind.
  EXPECT_EQ(watch(engine, {"call", "cancelInstallation"}), refused);
  EXPECT_EQ(watch(engine, {"call", "shutdownService"}), refused);
  EXPECT_EQ(watch(engine, {"state"}), "state 17\n");
  letGoOn();
  waitForEndOfWork(engine);
  EXPECT_EQ(watch(engine, {"state", "shutdown"}), "state 0\nshutdown sent\n");
  EXPECT_EQ(engine.wait().exitCode, 0);
}

TEST_F(WatchedRun, CanBeWatchedByAnotherUser) {
  makeProductThatWaits();
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  auto watcher = startWatcher(engine, {"observe", "follow", "shutdown"}, asUser());
  ASSERT_TRUE(watcher.waitForStandardOutput("state 17\n")) << watcher.standardOutputSoFar();
  letGoOn();
  EXPECT_TRUE(watcher.wait().standardOutput.ends_with("state 0\nshutdown sent\n"));
  // Looking is all that user may do.
  EXPECT_TRUE(engine.isRunning());
  EXPECT_EQ(watch(engine, {"shutdown"}), "shutdown sent\n");
  EXPECT_EQ(engine.wait().exitCode, 0);
}

TEST_F(WatchedRun, NameThatSomebodyHasLeavesTheRunUnwatchedAndWaitingForNobody) {
  makeProductThatWaits();
  // The shell becomes the engine, so the name with its number is the engine's.
  auto engine = root().start({"/bin/sh", "-c",
                              "mkfifo /run/vending; " + std::string(kWatcher) +
                                  " vend com.corvane.installer.$$ >/run/vending & "
                                  "read line </run/vending; exec \"" +
                                  kEngine + "\" --ui --install"});
  waitForProgram(engine);
  letGoOn();
  const Outcome outcome = engine.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_TRUE(root().exists(kReceipt));
  EXPECT_TRUE(logged(outcome, "Error", "Unable to acquire a connection for the installation deployer status service"));
  EXPECT_TRUE(logged(outcome, "Debug", "<status server thread>startStatusService >> failed to setup status server."));
  EXPECT_EQ(outcome.standardError.find("posting com.corvane.installer"), std::string::npos);
  EXPECT_TRUE(logged(outcome, "Notice", "\"installer\" success: YES"));
}

TEST_F(WatchedRun, OfAReceiptIsAnnouncedUnderAnIdentityOfItsOwn) {
  bundle().stageFile("Core", "/opt/core", "x");
  bundle().addComponent("Core", "1", kProduct);
  deliverBundle();
  ASSERT_EQ(install().exitCode, 0);
  const std::string identity = std::string(kReceipt) + ".receipt";
  auto listener = startListener(identity);
  auto receipt = root().start({std::string(kReceipt) + "/Contents/MacOS/InstallationDeployer", "--receipt"});
  waitForService(receipt);
  EXPECT_TRUE(listener.waitForStandardOutput("listening\n" + startOf(receipt, identity)))
      << listener.standardOutputSoFar();
  EXPECT_TRUE(watch(receipt, {"state"}).starts_with("state "));
}

TEST_F(WatchedRun, OfAnUpgradeFollowsTheReceiptOnTheThreadOfItsWatchers) {
  bundle().stageFile("Core", "/opt/core", "x");
  bundle().addComponent("Core", "1", kProduct);
  deliverBundle();
  ASSERT_EQ(install().exitCode, 0);
  auto listener = startListener(kBundle);
  auto engine = startWatchedInstall();
  waitForEndOfWork(engine);
  EXPECT_EQ(watch(engine, {"state", "shutdown"}), "state 0\nshutdown sent\n");
  const Outcome outcome = engine.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  // The receipt's states are followed on the thread that serves the watchers.
  EXPECT_TRUE(logged(outcome, "Debug",
                     "----- <status server thread>added observer for com.corvane.installer.update notifications on "
                     "object: " +
                         std::string(kReceipt) + ".receipt"))
      << outcome.standardError;
  const std::string everything =
      "listening\n" + startOf(engine, kBundle) + repeated(updateOf(kBundle), announced(outcome, kBundle));
  EXPECT_TRUE(listener.waitForStandardOutput(everything)) << listener.standardOutputSoFar();
}

TEST_F(WatchedRun, IsTheOnlyRunThatCanBeReached) {
  makeProductThatWaits();
  auto engine = startEngine({"--install"});
  waitForProgram(engine);
  EXPECT_EQ(watch(engine, {"state"}), "no service\n");
  EXPECT_EQ(root().shell("ls /run/com.corvane.installer /run/com.corvane.installer/observers").standardOutput,
            "/run/com.corvane.installer:\nobservers\n\n/run/com.corvane.installer/observers:\n");
  letGoOn();
  const Outcome outcome = engine.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(outcome.standardError.find("QVNInstallationStatusService"), std::string::npos);
  EXPECT_EQ(outcome.standardError.find("self.runLoopShouldKeepRunning"), std::string::npos);
}

}  // namespace
}  // namespace tests
