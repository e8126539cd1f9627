#include "tests/integration/WatchedEngineInRoot.h"

namespace tests {
namespace {

using support::Outcome;

/// What an ordinary user of the machine (501) tries against a run of root.
class OtherUser : public WatchedEngineInRoot {
 protected:
  static constexpr const char* kNotYours =
      "refused: Only root and the user of the console session may cancel or release a run.\n";
  static constexpr const char* kRootsAlone =
      "refused: Only root may cancel or release this engine: another one started it and follows it.\n";

  /// The beginnings of the last lines of a run, those apart that tell how its threads end.
  static void expectLastNotices(const Outcome& outcome, const std::vector<std::string>& beginnings) {
    std::vector<std::string> notices;
    for (const LoggedMessage& message : parseLog(outcome.standardError)) {
      if (message.level == "Notice") {
        notices.push_back(message.text);
      }
    }
    ASSERT_GE(notices.size(), beginnings.size());
    const std::vector<std::string> last(notices.end() - std::ssize(beginnings), notices.end());
    for (std::size_t i = 0; i < beginnings.size(); ++i) {
      EXPECT_TRUE(last[i].starts_with(beginnings[i])) << last[i];
    }
  }
};

TEST_F(OtherUser, CanNeitherCancelNorReleaseARun) {
  makeProductThatWaits();
  root().setConsoleUser(502);
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  EXPECT_EQ(watch(engine, {"cancel", "refusal", "shutdown", "refusal", "state"}, asUser()),
            std::string("cancel sent\n") + kNotYours + "shutdown sent\n" + kNotYours + "state 17\n");
  letGoOn();
  waitForEndOfWork(engine);
  EXPECT_EQ(watch(engine, {"state", "shutdown", "refusal"}, asUser()),
            std::string("state 0\nshutdown sent\n") + kNotYours);
  EXPECT_EQ(watch(engine, {"shutdown"}), "shutdown sent\n");
  const Outcome outcome = engine.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_TRUE(root().exists(kReceipt));
  EXPECT_TRUE(loggedBeginning(outcome, "Notice", "Refused cancelInstallation of user 501, process "));
  EXPECT_FALSE(loggedBeginning(outcome, "Notice", "Cancelled by"));
  EXPECT_FALSE(loggedBeginning(outcome, "Notice", "The run was cancelled by"));
}

TEST_F(OtherUser, AtTheConsoleMayCancelARunButReleasesItOnlyOnceItsStateIsFinal) {
  makeProductThatWaits();
  root().setConsoleUser(501);
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  EXPECT_EQ(watch(engine, {"shutdown", "refusal", "cancel", "refusal", "state"}, asUser()),
            "shutdown sent\nrefused: A run can be released only once its state is final.\ncancel sent\nnot refused\n"
            "state 17\n");
  letGoOn();
  waitForEndOfWork(engine);
  EXPECT_EQ(watch(engine, {"state", "shutdown"}, asUser()), "state 21\nshutdown sent\n");
  const Outcome outcome = engine.wait();
  EXPECT_EQ(outcome.exitCode, 21) << outcome.description();
  EXPECT_TRUE(loggedBeginning(outcome, "Notice", "Cancelled by user 501, process "));
  expectLastNotices(outcome, {"Installation complete", "The run was cancelled by user 501, process "});
}

TEST_F(OtherUser, GivesNoOrdersToAReceiptProcessNotEvenFromTheConsole) {
  bundle().stageFile("Core", "/opt/core", "x");
  bundle().addComponent("Core", "1", kProduct);
  deliverBundle();
  ASSERT_EQ(install().exitCode, 0);
  root().setConsoleUser(501);
  auto receipt = root().start({std::string(kReceipt) + "/Contents/MacOS/InstallationDeployer", "--receipt"});
  waitForService(receipt);
  EXPECT_EQ(watch(receipt, {"cancel", "refusal", "shutdown", "refusal"}, asUser()),
            std::string("cancel sent\n") + kRootsAlone + "shutdown sent\n" + kRootsAlone);
  EXPECT_TRUE(receipt.isRunning());
}

TEST_F(OtherUser, FillsNoLogWithQuestions) {
  makeProductThatWaits();
  auto engine = startWatchedInstall();
  waitForProgram(engine);
  constexpr std::size_t kQuestions = 5000;
  EXPECT_EQ(root().run(watcherCommand(engine, std::vector<std::string>(kQuestions, "state")), asUser()).exitCode, 0);
  const std::string mark = "[QVNInstallationStatusService getCurrentState] >>> 17";
  // Root's own questions are still in the log.
  EXPECT_EQ(watch(engine, {"state"}), "state 17\n");
  letGoOn();
  waitForEndOfWork(engine);
  EXPECT_EQ(watch(engine, {"shutdown"}), "shutdown sent\n");
  const Outcome outcome = engine.wait();
  std::size_t logged = 0;
  std::size_t leftOut = 0;
  std::size_t tellings = 0;
  for (const LoggedMessage& message : parseLog(outcome.standardError)) {
    logged += message.text.ends_with(mark) ? 1U : 0U;
    if (const auto end = message.text.find(" requests of watchers were not logged"); end != std::string::npos) {
      leftOut += std::stoul(message.text.substr(0, end));
      ++tellings;
    }
  }
  EXPECT_EQ(logged + leftOut, kQuestions + 1);
  EXPECT_GT(leftOut, tellings);
  EXPECT_GE(logged, 1001U);
}

TEST_F(OtherUser, LearnsNoSecretFromAnExternalSource) {
  root().writeFile("/etc/secret", "secret", 0600);
  root().makeDirectory("/Users/Shared", 01777);
  ASSERT_TRUE(
      root().shell("ln -s /etc/secret /Users/Shared/licence; ln -s /etc /Users/Shared/way", asUser()).succeeded());
  const auto external = [](const std::string& source) {
    return array({dictionary({{"Path", "/opt/licence"},
                              {"ExternalSourcePath", source},
                              {"NSFileOwnerAccountID", 0},
                              {"NSFileGroupOwnerAccountID", 0},
                              {"NSFilePosixPermissions", 0644}})});
  };
  bundle().stageFile("Core", "/opt/guard/core", "core");
  bundle().addComponent("Core", "1.0", kProduct);
  for (const char* source : {"/Users/Shared/licence", "/Users/Shared/way/secret"}) {
    bundle().writeManifest("Core", bundle().readManifest("Core").with("ListOfFiles", external(source)));
    deliverBundle();
    const Outcome outcome = install();
    EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
    EXPECT_TRUE(loggedBeginning(outcome, "Error", "Error: Error Domain=NSCocoaErrorDomain Code=257 "));
    EXPECT_FALSE(root().exists("/opt/licence"));
  }
}

}  // namespace
}  // namespace tests
