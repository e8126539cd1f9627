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
