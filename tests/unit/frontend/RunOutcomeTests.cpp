#include <gtest/gtest.h>

#include "frontend/RunOutcome.h"

namespace frontend {
namespace {

using deployer::QVNInstallerState;

RunFacts factsOf(Purpose purpose) {
  RunFacts facts;
  facts.purpose = purpose;
  facts.process = 4711;
  return facts;
}

TEST(RunOutcome, ExitsWithTheFinalStateOfTheRun) {
  for (const std::uint32_t state : {0U, 1U, 2U, 3U, 4U, 10U, 21U}) {
    const RunOutcome outcome =
        outcomeOf({RunEnd::Kind::Finished, static_cast<QVNInstallerState>(state), {}}, factsOf(Purpose::Install));
    EXPECT_EQ(outcome.exitCode, static_cast<int>(state));
    EXPECT_EQ(outcome.state, state);
    EXPECT_EQ(outcome.kind, "finished");
    EXPECT_NE(outcome.text, "");
  }
}

TEST(RunOutcome, SaysWhatTheRunWasFor) {
  using namespace deployer;
  EXPECT_EQ(finalStateText(QVNInstallerStateSuccess, Purpose::Install), "The installation was successful.");
  EXPECT_EQ(finalStateText(QVNInstallerStateCancelled, Purpose::Install), "The installation was cancelled.");
  EXPECT_EQ(finalStateText(QVNInstallerStateInsufficientDiskSpace, Purpose::Install),
            "Insufficient disk space to install.");
  EXPECT_EQ(finalStateText(QVNInstallerStateSuccess, Purpose::Remove), "The product was removed.");
  EXPECT_EQ(finalStateText(QVNInstallerStateCancelled, Purpose::Remove), "The removal was cancelled.");
  EXPECT_EQ(finalStateText(QVNInstallerStateFailed, Purpose::Remove), "The removal failed.");
  EXPECT_EQ(finalStateText(QVNInstallerStateSuccess, Purpose::Watch), "The run was successful.");
  EXPECT_EQ(finalStateText(QVNInstallerStateFailed, Purpose::Watch), "The run failed.");
  EXPECT_EQ(finalStateText(QVNInstallerStateCancelled, Purpose::Watch), "The run was cancelled.");
  EXPECT_EQ(finalStateText(QVNInstallerStateIncompatibleProduct, Purpose::Watch),
            "An incompatible product is installed.");
}

TEST(RunOutcome, HasExitCodesOfItsOwnForWhatIsNoFinalState) {
  const RunFacts facts = factsOf(Purpose::Install);
  const RunOutcome lost = outcomeOf({RunEnd::Kind::Lost, {}, "Gone."}, facts);
  EXPECT_EQ(lost.exitCode, 70);
  EXPECT_EQ(lost.state, std::nullopt);
  EXPECT_TRUE(lost.text.starts_with("Gone. "));
  const RunOutcome unwatched = outcomeOf({RunEnd::Kind::Unwatched, {}, "None."}, facts);
  EXPECT_EQ(unwatched.exitCode, 69);
  EXPECT_EQ(unwatched.text, "None.");
  const RunOutcome detached = outcomeOf({RunEnd::Kind::Detached, {}, {}}, facts);
  EXPECT_EQ(detached.exitCode, 75);
  EXPECT_NE(detached.text.find("`Installer --watch 4711`"), std::string::npos);
  for (const RunOutcome& outcome : {lost, unwatched, detached}) {
    EXPECT_FALSE(deployer::isCompletionState(static_cast<QVNInstallerState>(outcome.exitCode)));
  }
}

TEST(RunOutcome, SaysWhatToDoAboutABundleThatIsNotFit) {
  using Kind = deployer::BundleProblem::Kind;
  deployer::BundleReport report;
  report.problems = {{.kind = Kind::Checksum, .file = "/b/f", .what = "is damaged", .component = {}}};
  report.problemCount = 3;
  const RunOutcome damaged = outcomeOf(report, Purpose::Install);
  EXPECT_EQ(damaged.kind, "refused");
  EXPECT_EQ(damaged.exitCode, 65);
  EXPECT_EQ(damaged.state, std::nullopt);
  EXPECT_EQ(
      damaged.text,
      "The bundle cannot be installed as it is (problems: 3). Nothing was started, and nothing was changed. Fetch "
      "the bundle again.");
  report.problems.push_back({.kind = Kind::Unreadable, .file = "/b/g", .what = "", .component = {}});
  report.problems.push_back({.kind = Kind::Malformed, .file = "/b/h", .what = "", .component = {}});
  EXPECT_TRUE(
      outcomeOf(report, Purpose::Install)
          .text.ends_with("Fetch the bundle again, or put right what keeps it from being read; if it stays like "
                          "this, ask whoever made it."));
  EXPECT_TRUE(outcomeOf(report, Purpose::Remove).text.starts_with("The receipt cannot be read. "));
  EXPECT_EQ(outcomeOf(report, Purpose::Remove).exitCode, 65);
}

TEST(RunOutcome, AsksForTheSpaceThatIsMissing) {
  deployer::BundleReport report;
  report.problems = {{.kind = deployer::BundleProblem::Kind::Space,
                      .file = "/",
                      .what = "has too little space",
                      .component = {},
                      .expected = "5000000",
                      .found = "800000"}};
  report.problemCount = 1;
  const RunOutcome full = outcomeOf(report, Purpose::Install);
  EXPECT_EQ(full.exitCode, 4);
  EXPECT_EQ(full.state, 4U);
  EXPECT_EQ(full.text,
            "Insufficient disk space to install. Free 4200000 bytes (4.2 MB) more on the system volume. Nothing was "
            "started, and nothing was changed.");
}

TEST(RunOutcome, SaysThatNothingWasStarted) {
  EXPECT_EQ(outcomeOfLeaving().exitCode, 75);
  EXPECT_EQ(outcomeOfLeaving().kind, "detached");
  EXPECT_EQ(outcomeOfLeaving().text, "Nothing was started, and nothing was changed.");
  EXPECT_EQ(outcomeOfFailedCheck("no memory").exitCode, 65);
  EXPECT_EQ(outcomeOfFailedCheck("no memory").text,
            "The bundle cannot be checked: no memory. Nothing was started, and nothing was changed.");
}

TEST(RunOutcome, AsksForRootWhereAnEngineOfAnotherUserRefused) {
  RunFacts facts = factsOf(Purpose::Install);
  const RunEnd refused{RunEnd::Kind::Refused, deployer::QVNInstallerStateFailed, {}};
  EXPECT_EQ(outcomeOf(refused, facts).text.find("root"), std::string::npos);
  facts.isRoot = false;
  EXPECT_NE(outcomeOf(refused, facts).text.find("as root"), std::string::npos);
  EXPECT_EQ(outcomeOf(refused, facts).exitCode, 1);
}

TEST(RunOutcome, SaysWhereTheLogIs) {
  RunFacts facts;
  EXPECT_EQ(logText(facts), "Log: the system log, under \"Corvane Installer\".");
  facts.logFile = "/var/log/x";
  EXPECT_EQ(logText(facts), "Log: /var/log/x, and the system log, under \"Corvane Installer\".");
  facts.logIsShown = true;
  EXPECT_EQ(logText(facts), "Log: shown above, and in the system log, under \"Corvane Installer\".");
}

}  // namespace
}  // namespace frontend
