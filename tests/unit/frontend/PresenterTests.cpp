#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "frontend/JsonPresenter.h"
#include "frontend/LivePresenter.h"
#include "frontend/PlainPresenter.h"

namespace frontend {
namespace {

using namespace deployer;

/// Collects what a presenter prints.
struct Printed {
  std::string output;
  std::string trouble;
  Presenter::Output toOutput() {
    return [this](std::string_view text) { output += text; };
  }
  Presenter::Output toTrouble() {
    return [this](std::string_view text) { trouble += text; };
  }
};

RunFacts someFacts() {
  RunFacts facts;
  facts.process = 7;
  facts.logFile = "/l";
  return facts;
}

const RunOutcome kSuccess{"finished", 0, "Well done.", 0};
const RunOutcome kFailure{"finished", 1, "Not well.", 1};
constexpr const char* kLogLine = "Log: /l, and the system log, under \"Corvane Installer\".\n";

TEST(PlainPresenter, PrintsEveryStateAndProgressInStepsOfTen) {
  Printed printed;
  PlainPresenter presenter(printed.toOutput(), printed.toTrouble());
  presenter.begin(someFacts());
  presenter.watching(7);
  presenter.stateChanged(QVNInstallerStatePreparing);
  presenter.progressChanged(0);
  presenter.progressChanged(9);
  presenter.progressChanged(12);
  presenter.progressChanged(19);
  presenter.stateChanged(QVNInstallerStateInstalling);
  presenter.progressChanged(15);
  presenter.progressChanged(40);
  presenter.stateChanged(QVNInstallerStateSuccess);
  presenter.end(kSuccess, someFacts());
  EXPECT_EQ(printed.output,
            std::string("Engine started: process 7\nPreparing\nPreparing, 12 %\nInstalling\nInstalling, 40 %\n"
                        "Well done. Exit code 0.\n") +
                kLogLine);
  EXPECT_EQ(printed.trouble, "");
}

TEST(PlainPresenter, TellsOfFailuresWhereTroubleBelongs) {
  Printed printed;
  PlainPresenter presenter(printed.toOutput(), printed.toTrouble());
  presenter.end(kFailure, someFacts());
  EXPECT_EQ(printed.trouble, std::string("Not well. Exit code 1.\n") + kLogLine);
  EXPECT_EQ(printed.output, "");
}

TEST(PlainPresenter, KnowsNoNameForStatesOfLaterEngines) {
  Printed printed;
  PlainPresenter presenter(printed.toOutput(), printed.toTrouble());
  presenter.stateChanged(static_cast<QVNInstallerState>(99));
  EXPECT_EQ(printed.output, "Unknown state\n");
}

TEST(PlainPresenter, LetsNoControlCharacterThrough) {
  Printed printed;
  PlainPresenter presenter(printed.toOutput(), printed.toTrouble());
  presenter.end({"lost", std::nullopt, "a\x1b[2Jb", 70}, someFacts());
  EXPECT_EQ(printed.trouble.find('\x1b'), std::string::npos);
}

TEST(LivePresenter, DrawsOneLineAgainAndAgain) {
  Printed printed;
  LivePresenter presenter(printed.toOutput(), printed.toTrouble(), [] { return 80U; });
  presenter.begin(someFacts());
  EXPECT_EQ(printed.output, "\r\x1b[K[..............................]   0 %  Starting");
  printed.output.clear();
  presenter.stateChanged(QVNInstallerStateInstalling);
  presenter.progressChanged(50);
  EXPECT_EQ(printed.output,
            "\r\x1b[K[..............................]   0 %  Installing"
            "\r\x1b[K[###############...............]  50 %  Installing");
  printed.output.clear();
  presenter.end(kSuccess, someFacts());
  EXPECT_EQ(printed.output, std::string("\r\x1b[KWell done. Exit code 0.\n") + kLogLine);
}

TEST(LivePresenter, ErasesItsLineBeforeTroubleIsTold) {
  Printed printed;
  LivePresenter presenter(printed.toOutput(), printed.toTrouble(), [] { return 80U; });
  presenter.begin(someFacts());
  presenter.end(kFailure, someFacts());
  EXPECT_TRUE(printed.output.ends_with("Starting\r\x1b[K"));
  EXPECT_TRUE(printed.trouble.starts_with("Not well."));
}

TEST(LivePresenter, SaysWhatCancellingMeansOnLinesThatStay) {
  Printed printed;
  LivePresenter presenter(printed.toOutput(), printed.toTrouble(), [] { return 80U; });
  presenter.stateChanged(QVNInstallerStateInstalling);
  printed.output.clear();
  presenter.cancelAsked();
  EXPECT_TRUE(printed.output.starts_with("\r\x1b[KCancelling: "));
  EXPECT_NE(printed.output.find("at once.\n\r\x1b[K["), std::string::npos) << printed.output;
}

TEST(LivePresenter, SaysOnLinesThatStayThatTheEngineCannotBeReached) {
  Printed printed;
  LivePresenter presenter(printed.toOutput(), printed.toTrouble(), [] { return 80U; });
  presenter.unreachable();
  EXPECT_TRUE(printed.output.starts_with("\r\x1b[KThe engine runs but cannot be reached")) << printed.output;
  EXPECT_NE(printed.output.find("leave it alone.\n\r\x1b[K["), std::string::npos) << printed.output;
}

TEST(PlainPresenter, SaysThatTheEngineCannotBeReached) {
  Printed printed;
  PlainPresenter presenter(printed.toOutput(), printed.toTrouble());
  presenter.unreachable();
  EXPECT_EQ(printed.output, std::string(kUnreachableText) + "\n");
}

TEST(LivePresenter, NeverReachesTheLastColumn) {
  for (const std::size_t columns : {0U, 1U, 2U, 10U, 25U, 40U, 200U}) {
    Printed printed;
    LivePresenter presenter(printed.toOutput(), printed.toTrouble(), [=] { return columns; });
    presenter.progressChanged(100);
    printed.output.clear();
    presenter.stateChanged(QVNInstallerStateRunningExecutables);
    const std::size_t length = printed.output.size() - std::string_view("\r\x1b[K").size();
    EXPECT_LT(length, std::max<std::size_t>(columns, 1));
  }
}

TEST(LivePresenter, FollowsTheWidthOfTheTerminal) {
  Printed printed;
  std::size_t columns = 80;
  LivePresenter presenter(printed.toOutput(), printed.toTrouble(), [&] { return columns; });
  presenter.stateChanged(QVNInstallerStateInstalling);
  printed.output.clear();
  columns = 30;
  presenter.widthChanged();
  EXPECT_EQ(printed.output, "\r\x1b[K[.........]   0 %  Installing");
}

TEST(JsonPresenter, PrintsOneObjectPerEvent) {
  Printed printed;
  JsonPresenter presenter(printed.toOutput());
  presenter.begin(someFacts());
  presenter.unreachable();
  presenter.watching(7);
  presenter.stateChanged(QVNInstallerStateInstalling);
  presenter.progressChanged(40);
  presenter.cancelAsked();
  presenter.end(kFailure, someFacts());
  EXPECT_EQ(printed.output,
            "{\"event\": \"started\", \"process\": 7, \"log\": \"/l\"}\n"
            "{\"event\": \"unreachable\"}\n"
            "{\"event\": \"watching\", \"process\": 7}\n"
            "{\"event\": \"state\", \"state\": 15, \"text\": \"Installing\"}\n"
            "{\"event\": \"progress\", \"percent\": 40}\n"
            "{\"event\": \"cancelling\"}\n"
            "{\"event\": \"ended\", \"outcome\": \"finished\", \"state\": 1, \"text\": \"Not well.\", \"exitCode\": 1, "
            "\"process\": 7, \"log\": \"/l\"}\n");
}

TEST(JsonPresenter, PrintsNullForWhatIsNotKnown) {
  Printed printed;
  JsonPresenter presenter(printed.toOutput());
  RunFacts facts;
  facts.purpose = Purpose::Watch;
  presenter.begin(facts);
  presenter.end({"unwatched", std::nullopt, "x", 69}, facts);
  EXPECT_EQ(printed.output,
            "{\"event\": \"connecting\", \"process\": null, \"log\": null}\n"
            "{\"event\": \"ended\", \"outcome\": \"unwatched\", \"state\": null, \"text\": \"x\", \"exitCode\": 69, "
            "\"process\": null, \"log\": null}\n");
}

}  // namespace
}  // namespace frontend
