#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "frontend/LivePresenter.h"
#include "tests/unit/frontend/PrintedRun.h"

namespace frontend {
namespace {

using namespace deployer;

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

TEST(LivePresenter, DrawsTheCheckOnTheLineAndBeginsTheRunAgainAtNought) {
  Printed printed;
  LivePresenter presenter(printed.toOutput(), printed.toTrouble(), [] { return 80U; });
  presenter.checking(45);
  EXPECT_TRUE(printed.output.ends_with("]  45 %  Checking the bundle")) << printed.output;
  presenter.checked({});
  presenter.begin(someFacts());
  EXPECT_TRUE(printed.output.ends_with("]   0 %  Starting")) << printed.output;
}

TEST(LivePresenter, ErasesItsLineBeforeItTellsWhatIsWrongWithABundle) {
  Printed printed;
  LivePresenter presenter(printed.toOutput(), printed.toTrouble(), [] { return 80U; });
  presenter.checking(45);
  presenter.refused(someReport());
  EXPECT_TRUE(printed.output.ends_with("\r\x1b[K"));
  EXPECT_TRUE(printed.trouble.starts_with("/b/one is missing\n"));
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

TEST(LivePresenter, SaysAboveItsBarThatTheEngineRefusedAnOrder) {
  Printed printed;
  LivePresenter presenter(printed.toOutput(), printed.toTrouble(), [] { return 40U; });
  presenter.orderRefused("Not you.");
  EXPECT_TRUE(printed.output.starts_with("\r\x1b[KThe engine goes on. Not you.\n\r\x1b[K[")) << printed.output;
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

}  // namespace
}  // namespace frontend
