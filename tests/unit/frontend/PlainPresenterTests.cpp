#include <gtest/gtest.h>

#include <string>

#include "frontend/PlainPresenter.h"
#include "frontend/ProblemText.h"
#include "tests/unit/frontend/PrintedRun.h"

namespace frontend {
namespace {

using namespace deployer;

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

TEST(PlainPresenter, PrintsTheCheckInStepsOfTen) {
  Printed printed;
  PlainPresenter presenter(printed.toOutput(), printed.toTrouble());
  for (const int percent : {0, 5, 12, 19, 45, 45}) {
    presenter.checking(percent);
  }
  EXPECT_EQ(printed.output, "Checking the bundle\nChecking the bundle, 12 %\nChecking the bundle, 45 %\n");
}

TEST(PlainPresenter, TellsWhatIsWrongWithABundleWhereTroubleBelongs) {
  Printed printed;
  PlainPresenter presenter(printed.toOutput(), printed.toTrouble());
  presenter.refused(someReport());
  EXPECT_EQ(printed.trouble, problemsText(someReport()));
  deployer::BundleReport fit;
  fit.warnings = {"a\tb"};
  presenter.checked(fit);
  EXPECT_EQ(printed.trouble, problemsText(someReport()) + "Warning: a\\x09b\n");
  EXPECT_EQ(printed.output, "");
}

TEST(PlainPresenter, NamesNoLogWhereThereIsNone) {
  Printed printed;
  PlainPresenter presenter(printed.toOutput(), printed.toTrouble());
  RunFacts facts = someFacts();
  facts.hasLog = false;
  presenter.end(kFailure, facts);
  EXPECT_EQ(printed.trouble, "Not well. Exit code 1.\n");
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

TEST(PlainPresenter, SaysThatTheEngineCannotBeReached) {
  Printed printed;
  PlainPresenter presenter(printed.toOutput(), printed.toTrouble());
  presenter.unreachable();
  EXPECT_EQ(printed.output, std::string(kUnreachableText) + "\n");
}

TEST(PlainPresenter, SaysThatTheEngineGoesOnWhenItRefusesAnOrder) {
  Printed printed;
  PlainPresenter presenter(printed.toOutput(), printed.toTrouble());
  presenter.orderRefused("Not \x1b you.");
  EXPECT_TRUE(printed.output.starts_with("The engine goes on. Not ")) << printed.output;
  EXPECT_EQ(printed.output.find('\x1b'), std::string::npos);
}

}  // namespace
}  // namespace frontend
