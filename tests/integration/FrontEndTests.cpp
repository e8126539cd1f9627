#include <sys/stat.h>

#include <regex>

#include "tests/integration/FrontEndInRoot.h"

namespace tests {
namespace {

using support::Outcome;

class FrontEnd : public FrontEndInRoot {
 protected:
  /// What an engine does that waits for letGoOn() before it begins.
  static constexpr const char* kLateEngine =
      "mkfifo /run/gate; read line </run/gate; exec -a \"$0\" /opt/real/InstallationDeployer --ui --install";

  void putScriptInPlaceOfEngine(const std::string& script) {
    root().copyIn(CORVANE_ENGINE, "/opt/real/InstallationDeployer");
    static_cast<void>(root().run({"/bin/rm", "-f", kEngine}));
    root().writeFile(kEngine, "#!/bin/bash\n" + script + "\n", 0755);
  }
};

TEST_F(FrontEnd, InstallsAndSaysHowItWentAndWhereTheLogIs) {
  makeProduct();
  const Outcome outcome = runFrontEnd();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(outcome.standardError, "");
  EXPECT_TRUE(std::regex_match(
      outcome.standardOutput,
      std::regex(
          "Checking the bundle\n"
          "(Checking the bundle, [0-9]+ %\n)*"
          "Engine started: process [0-9]+\n"
          "([A-Z][a-z ]+(, [0-9]+ %)?\n)*"
          "The installation was successful\\. Exit code 0\\.\n"
          "Log: /var/log/com\\.corvane\\.installer\\.log, and the system log, under \"Corvane Installer\"\\.\n")))
      << outcome.standardOutput;
  EXPECT_EQ(root().readFile("/opt/guard/core"), "core");
  EXPECT_NE(root().readFile(kLog).find("<Notice>: Installation complete"), std::string::npos);
}

TEST_F(FrontEnd, KeepsItsLogFromOthers) {
  makeProduct();
  ASSERT_EQ(runFrontEnd().exitCode, 0);
  struct stat item {};
  ASSERT_EQ(stat(root().path(kLog).c_str(), &item), 0);
  EXPECT_EQ(item.st_mode & 07777U, 0600U);
}

TEST_F(FrontEnd, LeavesNoEngineBehind) {
  makeProduct();
  auto frontEnd = startFrontEnd();
  const pid_t engine = engineOf(frontEnd);
  EXPECT_EQ(frontEnd.wait().exitCode, 0);
  EXPECT_FALSE(runs(engine));
}

TEST_F(FrontEnd, GoesIntoTheReceiptAndRemovesTheProductFromThere) {
  makeProduct();
  ASSERT_EQ(runFrontEnd().exitCode, 0);
  struct stat item {};
  ASSERT_EQ(stat(root().path(kReceiptFrontEnd).c_str(), &item), 0);
  EXPECT_EQ(item.st_mode & 07777U, 0755U);
  const Outcome removed = root().run({kReceiptFrontEnd, "--remove"});
  EXPECT_EQ(removed.exitCode, 0) << removed.description() << root().readFile(kLog);
  EXPECT_NE(removed.standardOutput.find("The product was removed. Exit code 0."), std::string::npos);
  EXPECT_FALSE(root().exists("/opt/guard/core"));
  EXPECT_FALSE(root().exists(kReceipt));
}

TEST_F(FrontEnd, IsFoundWhereItLiesWhenStartedFromItsFolderOrThroughALink) {
  makeProduct();
  support::RunOptions inFolder;
  inFolder.currentDirectory = std::string(kBundle) + "/Contents/MacOS";
  EXPECT_EQ(root().run({"./Installer"}, inFolder).exitCode, 0);
  root().makeLink("/usr-local-bin/Installer", kFrontEnd);
  const Outcome linked = root().run({"/usr-local-bin/Installer"});
  EXPECT_EQ(linked.exitCode, 0) << linked.description();
}

TEST_F(FrontEnd, TellsThatAProductIsRemovedFromItsReceiptOnly) {
  makeProduct();
  const Outcome outcome = runFrontEnd({"--remove"});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_TRUE(outcome.standardError.starts_with("The removal failed. Exit code 1.\n")) << outcome.description();
  EXPECT_NE(root().readFile(kLog).find("Remove operation cannot run from this location"), std::string::npos);
}

TEST_F(FrontEnd, TellsOfARunThatFailsBeforeItsSteps) {
  makeProduct();
  auto frontEnd = startFrontEnd({"--product", "Unknown"});
  const pid_t engine = engineOf(frontEnd);
  const Outcome outcome = frontEnd.wait();
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_TRUE(outcome.standardError.starts_with("The installation failed. Exit code 1.\n")) << outcome.description();
  EXPECT_FALSE(runs(engine));
}

TEST_F(FrontEnd, ShowsEachStateOnALineAndNoEscapeCodes) {
  makeProductThatWaits();
  auto frontEnd = startFrontEnd();
  ASSERT_TRUE(frontEnd.waitForStandardOutput(kWaiting)) << frontEnd.standardErrorSoFar();
  letGoOn();
  const Outcome outcome = frontEnd.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_NE(outcome.standardOutput.find("\nRunning executables\n"), std::string::npos) << outcome.standardOutput;
  EXPECT_EQ(outcome.standardOutput.find('\x1b'), std::string::npos);
}

TEST_F(FrontEnd, PrintsOneJsonObjectPerEvent) {
  makeProductThatWaits();
  auto frontEnd = startFrontEnd({"--json"});
  ASSERT_TRUE(
      frontEnd.waitForStandardOutput("{\"event\": \"state\", \"state\": 17, \"text\": \"Running executables\"}\n"));
  letGoOn();
  const Outcome outcome = frontEnd.wait();
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.standardError, "");
  EXPECT_TRUE(std::regex_match(
      outcome.standardOutput,
      std::regex(
          "(\\{\"event\": \"checking\", \"percent\": [0-9]+\\}\n)+"
          "\\{\"event\": \"checked\", \"files\": 2, \"bytes\": 39, \"checksums\": true, \"warnings\": \\[\\]\\}\n"
          "\\{\"event\": \"started\", \"process\": ([0-9]+), \"log\": \"/var/log/com.corvane.installer.log\"\\}\n"
          "\\{\"event\": \"watching\", \"process\": [0-9]+\\}\n"
          "(\\{\"event\": \"(state\", \"state\": [0-9]+, \"text\": \"[^\"]+\"|progress\", \"percent\": [0-9]+)\\}\n)+"
          "\\{\"event\": \"state\", \"state\": 0, \"text\": \"The installation was successful\\.\"\\}\n"
          "\\{\"event\": \"ended\", \"outcome\": \"finished\", \"state\": 0, "
          "\"text\": \"The installation was successful\\.\", \"exitCode\": 0, \"process\": \\2, "
          "\"log\": \"/var/log/com.corvane.installer.log\"\\}\n")))
      << outcome.standardOutput;
}

TEST_F(FrontEnd, ShowsTheEnginesLogWhenAskedTo) {
  makeProduct();
  const Outcome outcome = runFrontEnd({"--verbose"});
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_TRUE(logged(outcome, "Notice", "Installation complete"));
  EXPECT_NE(outcome.standardOutput.find("Log: shown above"), std::string::npos);
  EXPECT_FALSE(root().exists(kLog));
}

TEST_F(FrontEnd, SeesTheRunThroughWhenNobodyReadsAnyMore) {
  makeProduct();
  const Outcome outcome = root().run({"/bin/bash", "-c", "\"$0\" 2>&1 | true; exit ${PIPESTATUS[0]}", kFrontEnd});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_TRUE(root().exists(kReceipt));
}

// --- what cannot be started or watched ---

TEST_F(FrontEnd, SaysThatTheEngineNeedsRoot) {
  makeProduct();
  const Outcome outcome = runFrontEnd({}, asUser());
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_NE(outcome.standardError.find("It has to run as root: start this program as root"), std::string::npos)
      << outcome.description();
  EXPECT_FALSE(root().exists(kReceipt));
}

TEST_F(FrontEnd, SaysThatThereIsNoEngine) {
  makeProduct();
  EXPECT_TRUE(root().run({"/bin/rm", kEngine}).succeeded());
  const Outcome missing = runFrontEnd();
  EXPECT_EQ(missing.exitCode, 69);
  EXPECT_TRUE(missing.standardError.starts_with("There is no engine (InstallationDeployer) beside this program."));
  root().writeFile(kEngine, "no program", 0644);
  const Outcome broken = runFrontEnd();
  EXPECT_EQ(broken.exitCode, 69);
  EXPECT_TRUE(broken.standardError.starts_with("The engine cannot be started: ")) << broken.description();
}

TEST_F(FrontEnd, SaysThatAProcessIsNoEngine) {
  makeProduct();
  const pid_t other = root().startProcess("other", 501);
  const Outcome outcome = runFrontEnd(watchCommand(other), asUser());
  EXPECT_EQ(outcome.exitCode, 69);
  EXPECT_TRUE(outcome.standardError.starts_with("Process " + std::to_string(other) +
                                                " is not an installation engine. Exit code 69.\n"))
      << outcome.description();
  const Outcome none = runFrontEnd({"--watch", "4194304"});
  EXPECT_EQ(none.exitCode, 69);
  EXPECT_TRUE(none.standardError.starts_with("There is no process 4194304."));
}

TEST_F(FrontEnd, ExitsWith64WhenCalledWrongly) {
  makeProduct();
  for (const auto& options : std::vector<std::vector<std::string>>{{"nonsense"},
                                                                   {"--product"},
                                                                   {"--watch"},
                                                                   {"--watch", "0"},
                                                                   {"--watch", "-4"},
                                                                   {"--watch", "x"},
                                                                   {"--watch", "99999999999"},
                                                                   {"--watch", "1", "--remove"},
                                                                   {"--watch", "1", "--product", "P"},
                                                                   {"--watch", "1", "--verbose"}}) {
    const Outcome outcome = runFrontEnd(options);
    EXPECT_EQ(outcome.exitCode, 64) << options.front() << outcome.description();
    EXPECT_NE(outcome.standardError, "");
  }
  EXPECT_EQ(runFrontEnd({"--help"}).exitCode, 0);
  EXPECT_EQ(runFrontEnd({"--version"}).standardOutput, "Installer 1.0.0\n");
}

// --- watching a run of somebody else ---

TEST_F(FrontEnd, AttachesInTheMiddleOfARunAndShowsItsState) {
  makeProductThatWaits();
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  auto watcher = startFrontEnd(watchCommand(engine.process()));
  EXPECT_TRUE(
      watcher.waitForStandardOutput("Watching process " + std::to_string(engine.process()) + "\nRunning executables\n"))
      << watcher.standardErrorSoFar();
  letGoOn();
  const Outcome outcome = watcher.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_NE(outcome.standardOutput.find("The run was successful. Exit code 0."), std::string::npos);
  EXPECT_EQ(engine.wait().exitCode, 0);
}

TEST_F(FrontEnd, AttachesToAnEngineThatWaitsForItsEndToBeSeen) {
  makeProduct();
  auto engine = startWatchedInstall();
  waitForEndOfWork(engine);
  const Outcome outcome = runFrontEnd(watchCommand(engine.process()));
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(engine.wait().exitCode, 0);
}

TEST_F(FrontEnd, DoesNotTakeTheEngineOfAReceiptForARun) {
  makeProduct();
  ASSERT_EQ(runFrontEnd().exitCode, 0);
  auto receipt = root().start({std::string(kReceipt) + "/Contents/MacOS/InstallationDeployer", "--receipt"});
  ASSERT_TRUE(receipt.waitForStandardError("posting com.corvane.installer.receipt.started"));
  for (const auto& user : {support::RunOptions{}, asUser()}) {
    const Outcome outcome = runFrontEnd(watchCommand(receipt.process()), user);
    EXPECT_EQ(outcome.exitCode, 69) << outcome.description();
    EXPECT_NE(outcome.standardError.find("is the engine of a receipt"), std::string::npos) << outcome.description();
  }
  EXPECT_TRUE(runs(receipt.process()));
}

TEST_F(FrontEnd, AttachesToAnEngineThatCannotBeWatchedYet) {
  makeProduct();
  putScriptInPlaceOfEngine(kLateEngine);
  auto engine = root().start({kEngine});
  auto watcher = startFrontEnd(watchCommand(engine.process()));
  EXPECT_TRUE(watcher.waitForStandardOutput("Watching process"));
  letGoOn();
  EXPECT_EQ(watcher.wait().exitCode, 0);
  EXPECT_EQ(engine.wait().exitCode, 0);
}

TEST_F(FrontEnd, LetsAUserWithoutRightsWatchARunOfRoot) {
  makeProductThatWaits();
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  auto watcher = startFrontEnd(watchCommand(engine.process()), asUser());
  EXPECT_TRUE(watcher.waitForStandardOutput(kWaiting)) << watcher.standardErrorSoFar();
  watcher.kill(SIGINT);
  EXPECT_TRUE(watcher.waitForStandardOutput(
      "The engine goes on. Only root and the user of the console session may cancel or release a run."))
      << watcher.standardOutputSoFar();
  letGoOn();
  EXPECT_EQ(watcher.wait().exitCode, 0);
  EXPECT_TRUE(engine.isRunning());
  EXPECT_EQ(runFrontEnd(watchCommand(engine.process())).exitCode, 0);
  EXPECT_EQ(engine.wait().exitCode, 0);
}

TEST_F(FrontEnd, LetsTheUserOfTheConsoleCancelARunOfRoot) {
  makeProductThatWaits();
  root().setConsoleUser(501);
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  auto watcher = startFrontEnd(watchCommand(engine.process()), asUser());
  EXPECT_TRUE(watcher.waitForStandardOutput(kWaiting)) << watcher.standardErrorSoFar();
  watcher.kill(SIGINT);
  ASSERT_TRUE(engine.waitForStandardError("Cancelled by user 501, process ")) << engine.standardErrorSoFar();
  letGoOn();
  EXPECT_EQ(watcher.wait().exitCode, 21);
  const Outcome outcome = engine.wait();
  EXPECT_EQ(outcome.exitCode, 21);
  EXPECT_TRUE(std::regex_search(
      outcome.standardError,
      std::regex("<Notice>: Installation complete\n(.*\n)*.*The run was cancelled by user 501, process [0-9]+ "
                 "\\(Installer\\)\n")))
      << outcome.standardError;
}

TEST_F(FrontEnd, SharesARunWithAnotherFrontEnd) {
  makeProductThatWaits();
  auto frontEnd = startFrontEnd();
  const pid_t engine = engineOf(frontEnd);
  ASSERT_TRUE(frontEnd.waitForStandardOutput(kWaiting));
  auto watcher = startFrontEnd(watchCommand(engine));
  EXPECT_TRUE(watcher.waitForStandardOutput(kWaiting));
  letGoOn();
  EXPECT_EQ(frontEnd.wait().exitCode, 0);
  // Whichever front end sees the end first lets the engine leave; the other one may have missed it.
  const int seen = watcher.wait().exitCode;
  EXPECT_TRUE(seen == 0 || seen == 70) << seen;
  EXPECT_FALSE(runs(engine));
}

TEST_F(FrontEnd, KeepsItsLogWithinItsSizeWhileARunWritesToIt) {
  makeProduct();
  constexpr std::size_t kMost = std::size_t{16} * 1024 * 1024;
  constexpr std::size_t kLeft = 2000;
  root().makeDirectory("/var/log");
  root().writeFile(kLog, std::string(kMost - kLeft, 'x'), 0600);
  ASSERT_EQ(runFrontEnd().exitCode, 0);
  const std::string earlier = root().readFile(std::string(kLog) + ".1");
  EXPECT_LE(earlier.size(), kMost);
  EXPECT_GT(earlier.size(), kMost - kLeft);
  const std::string now = root().readFile(kLog);
  EXPECT_NE(now.find("Installation complete"), std::string::npos) << now;
  EXPECT_EQ(root().shell(std::string("stat -c '%a %u' ") + kLog).standardOutput, "600 0\n");
}

TEST_F(FrontEnd, WritesItsLogNowhereElseWhenAnotherUserTookItsPlaceBefore) {
  makeProduct();
  for (const char* trap : {"ln -s /Users/Shared/mine", "ln -s /etc/hosts", "ln -s /etc/new", "ln /Users/Shared/mine",
                           "cp /Users/Shared/mine", "mkfifo", "mkdir"}) {
    makeRoot();
    deliverBundle();
    root().makeDirectory("/Users/Shared", 01777);
    root().writeFile("/Users/Shared/mine", "mine", 0666, 501, 501);
    root().makeDirectory("/var/log", 01777);
    ASSERT_TRUE(root().shell(std::string(trap) + " " + kLog, asUser()).succeeded()) << trap;
    const auto before = root().snapshot("/var/log");
    const auto users = root().snapshot("/Users");
    const auto settings = root().snapshot("/etc");
    const Outcome outcome = runFrontEnd();
    EXPECT_EQ(outcome.exitCode, 0) << trap << outcome.description();
    EXPECT_EQ(root().readFile("/opt/guard/core"), "core");
    EXPECT_EQ(support::difference(root().snapshot("/var/log"), before), "") << trap;
    EXPECT_EQ(support::difference(root().snapshot("/Users"), users), "") << trap;
    EXPECT_EQ(support::difference(root().snapshot("/etc"), settings), "") << trap;
  }
}

TEST_F(FrontEnd, WritesItsLogNowhereElseWhenAnotherUserTakesItsPlaceMeanwhile) {
  makeProductThatWaits();
  root().makeDirectory("/var/log", 0777);
  root().makeDirectory("/Users/Shared", 01777);
  root().writeFile("/Users/Shared/mine", "mine", 0666, 501, 501);
  auto frontEnd = startFrontEnd();
  ASSERT_TRUE(frontEnd.waitForStandardOutput(kWaiting));
  ASSERT_TRUE(root()
                  .shell("mv " + std::string(kLog) + " /var/log/taken && ln -s /Users/Shared/mine " + kLog +
                             "; ln -s /Users/Shared/mine " + kLog + ".1",
                         asUser())
                  .succeeded());
  letGoOn();
  EXPECT_EQ(frontEnd.wait().exitCode, 0);
  EXPECT_TRUE(root().exists(kReceipt));
  EXPECT_EQ(root().readFile("/Users/Shared/mine"), "mine");
  // The file that was opened is still the log, and still root's alone.
  EXPECT_NE(root().readFile("/var/log/taken").find("Installation complete"), std::string::npos);
  EXPECT_EQ(root().shell("stat -c '%a %u' /var/log/taken").standardOutput, "600 0\n");
}

// --- signals ---

TEST_F(FrontEnd, AsksTheEngineToCancelAtTheFirstInterrupt) {
  makeProductThatWaits();
  auto frontEnd = startFrontEnd();
  ASSERT_TRUE(frontEnd.waitForStandardOutput(kWaiting));
  frontEnd.kill(SIGINT);
  ASSERT_TRUE(frontEnd.waitForStandardOutput(kCancelling)) << frontEnd.standardErrorSoFar();
  // Told is not heard yet.
  ASSERT_TRUE(root().shell(std::string("until grep -q 'Cancelled by user 0, ' ") + kLog + "; do :; done").succeeded());
  letGoOn();
  const Outcome outcome = frontEnd.wait();
  EXPECT_EQ(outcome.exitCode, 21) << outcome.description();
  EXPECT_TRUE(outcome.standardError.starts_with("The installation was cancelled. Exit code 21.\n"));
  EXPECT_FALSE(root().exists(kReceipt));
}

TEST_F(FrontEnd, LeavesTheEngineAloneAtTheSecondInterrupt) {
  makeProductThatWaits();
  auto frontEnd = startFrontEnd();
  const pid_t engine = engineOf(frontEnd);
  ASSERT_TRUE(frontEnd.waitForStandardOutput(kWaiting));
  frontEnd.kill(SIGINT);
  ASSERT_TRUE(frontEnd.waitForStandardOutput(kCancelling));
  frontEnd.kill(SIGINT);
  const Outcome outcome = frontEnd.wait();
  EXPECT_EQ(outcome.exitCode, 75) << outcome.description();
  EXPECT_NE(outcome.standardOutput.find("`Installer --watch " + std::to_string(engine) + "`"), std::string::npos);
  EXPECT_TRUE(runs(engine));
  letGoOn();
  EXPECT_EQ(runFrontEnd(watchCommand(engine)).exitCode, 21);
}

TEST_F(FrontEnd, LeavesTheEngineAloneWhenItIsAskedToEndOrItsTerminalIsClosed) {
  makeProductThatWaits();
  for (const int signal : {SIGTERM, SIGHUP}) {
    auto frontEnd = startFrontEnd();
    const pid_t engine = engineOf(frontEnd);
    ASSERT_TRUE(frontEnd.waitForStandardOutput(kWaiting));
    frontEnd.kill(signal);
    EXPECT_EQ(frontEnd.wait().exitCode, 75);
    letGoOn();
    EXPECT_EQ(runFrontEnd(watchCommand(engine)).exitCode, 0) << root().readFile(kLog);
    EXPECT_TRUE(root().run({"/bin/rm", "-r", "/Library/Application Support/Corvane"}).succeeded());
  }
}

TEST_F(FrontEnd, ShowsARunThatWaitsForAnotherOneAndCancelsIt) {
  makeProductThatWaits();
  auto first = startEngine({"--install"});
  waitForProgram(first);
  auto frontEnd = startFrontEnd({"--verbose"});
  const pid_t engine = engineOf(frontEnd);
  ASSERT_TRUE(frontEnd.waitForStandardError("Waiting for process " + std::to_string(first.process()) +
                                            ", which changes the product \"Guard\"."))
      << frontEnd.standardErrorSoFar();
  ASSERT_TRUE(frontEnd.waitForStandardOutput("\nPreparing"));
  frontEnd.kill(SIGINT);
  const Outcome outcome = frontEnd.wait();
  EXPECT_EQ(outcome.exitCode, 21) << outcome.description();
  EXPECT_NE(outcome.standardOutput.find(kCancelling), std::string::npos) << outcome.standardOutput;
  EXPECT_FALSE(runs(engine));
  EXPECT_TRUE(first.isRunning());
  letGoOn();
  EXPECT_EQ(first.wait().exitCode, 0);
}

TEST_F(FrontEnd, ShowsARunThatHasWaitedForAnotherOneToItsEnd) {
  makeProductThatWaits();
  auto first = startEngine({"--install"});
  waitForProgram(first);
  auto frontEnd = startFrontEnd({"--verbose"});
  ASSERT_TRUE(frontEnd.waitForStandardError("Waiting for process ")) << frontEnd.standardErrorSoFar();
  letGoOn();
  EXPECT_EQ(first.wait().exitCode, 0);
  const Outcome outcome = frontEnd.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_NE(outcome.standardOutput.find("The installation was successful. Exit code 0."), std::string::npos);
}

TEST_F(FrontEnd, CancelsAnEngineThatCannotBeReachedYetAsSoonAsItCan) {
  makeProduct();
  putScriptInPlaceOfEngine(kLateEngine);
  auto frontEnd = startFrontEnd();
  const pid_t engine = engineOf(frontEnd);
  frontEnd.kill(SIGINT);
  ASSERT_TRUE(frontEnd.waitForStandardOutput(kCancelling));
  letGoOn();
  const int end = frontEnd.wait().exitCode;
  EXPECT_TRUE(end == 21 || end == 0) << end << " (0: the run was over sooner)";
  EXPECT_NE(root().readFile(kLog).find("exiting the main thread with error code: " + std::to_string(end)),
            std::string::npos);
  EXPECT_FALSE(runs(engine));
}

// --- engines that die ---

TEST_F(FrontEnd, SaysThatTheEngineWasKilledInTheMiddleOfItsWork) {
  makeProductThatWaits();
  auto frontEnd = startFrontEnd();
  const pid_t engine = engineOf(frontEnd);
  ASSERT_TRUE(frontEnd.waitForStandardOutput(kWaiting));
  kill(engine, "KILL");
  const Outcome outcome = frontEnd.wait();
  EXPECT_EQ(outcome.exitCode, 70);
  EXPECT_TRUE(outcome.standardError.starts_with("The engine (process " + std::to_string(engine) +
                                                ") ended with signal 9, without saying how the run ended."))
      << outcome.description();
}

TEST_F(FrontEnd, SaysThatAWatchedEngineOfSomebodyElseHasGone) {
  makeProductThatWaits();
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  auto watcher = startFrontEnd(watchCommand(engine.process()));
  ASSERT_TRUE(watcher.waitForStandardOutput(kWaiting));
  engine.kill(SIGKILL);
  const Outcome outcome = watcher.wait();
  EXPECT_EQ(outcome.exitCode, 70);
  EXPECT_TRUE(outcome.standardError.starts_with("The engine (process " + std::to_string(engine.process()) +
                                                ") has gone without saying how the run ended."))
      << outcome.description();
}

TEST_F(FrontEnd, SaysThatTheEngineEndedBeforeItCouldBeWatched) {
  const std::vector<std::pair<std::string, int>> endings = {
      {"kill -KILL $$", 70}, {"kill -SEGV $$", 70}, {"exit 126", 70}, {"exit 15", 70}, {"exit 3", 3}, {"exit 1", 1}};
  makeProduct();
  for (const auto& [script, code] : endings) {
    putScriptInPlaceOfEngine(script);
    const Outcome outcome = runFrontEnd();
    EXPECT_EQ(outcome.exitCode, code) << script << outcome.description();
    EXPECT_NE(
        outcome.standardError.find(code == 70 ? "without saying how the run ended" : "before it could be watched"),
        std::string::npos)
        << outcome.description();
  }
}

}  // namespace
}  // namespace tests