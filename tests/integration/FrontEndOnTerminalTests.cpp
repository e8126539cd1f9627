#include <algorithm>
#include <memory>

#include "tests/integration/FrontEndInRoot.h"
#include "tests/support/PseudoTerminal.h"

namespace tests {
namespace {

using support::RunningProgram;

/// What the front end draws on a terminal, and what it takes from there.
class FrontEndOnTerminal : public FrontEndInRoot {
 protected:
  RunningProgram startOnTerminal(support::PseudoTerminal& terminal, const std::string& kind = "xterm") {
    support::RunOptions options;
    options.terminal = terminal.programEnd();
    options.environment.push_back("TERM=" + kind);
    auto program = startFrontEnd({}, options);
    terminal.giveAwayProgramEnd();
    return program;
  }
  /// The lines that stay on the screen, as a terminal shows them.
  static std::vector<std::string> shown(const std::string& drawn) {
    std::vector<std::string> lines(1);
    for (std::size_t at = 0; at < drawn.size(); ++at) {
      if (drawn.compare(at, 4, "\r\x1b[K") == 0) {
        lines.back().clear();
        at += 3;
      } else if (drawn[at] == '\n') {
        lines.emplace_back();
      } else if (drawn[at] != '\r') {
        lines.back() += drawn[at];
      }
    }
    return lines;
  }
};

TEST_F(FrontEndOnTerminal, DrawsOneLineAndLeavesTheOutcomeOnly) {
  makeProductThatWaits();
  support::PseudoTerminal terminal;
  auto program = startOnTerminal(terminal);
  EXPECT_TRUE(terminal.waitFor("%  Running executables"));
  letGoOn();
  EXPECT_EQ(program.wait().exitCode, 0);
  EXPECT_NE(terminal.everything().find("]   0 %  Checking the bundle\r\x1b[K"), std::string::npos);
  const auto lines = shown(terminal.everything());
  EXPECT_EQ(lines, (std::vector<std::string>{"The installation was successful. Exit code 0.",
                                             "Log: /var/log/com.corvane.installer.log, and the system log, under "
                                             "\"Corvane Installer\".",
                                             ""}))
      << terminal.everything();
}

TEST_F(FrontEndOnTerminal, LetsCtrlCReachItselfAndNotTheEngine) {
  makeProductThatWaits();
  support::PseudoTerminal terminal;
  auto program = startOnTerminal(terminal);
  ASSERT_TRUE(terminal.waitFor("%  Running executables"));
  terminal.type("\x03");
  ASSERT_TRUE(terminal.waitFor(kCancelling));
  ASSERT_TRUE(terminal.waitFor("%  Running executables")) << "the line is drawn again below";
  letGoOn();
  EXPECT_EQ(program.wait().exitCode, 21) << terminal.everything();
  EXPECT_NE(terminal.everything().find("The installation was cancelled. Exit code 21."), std::string::npos);
}

TEST_F(FrontEndOnTerminal, DetachesWhenTheTerminalIsClosed) {
  makeProductThatWaits();
  auto terminal = std::make_unique<support::PseudoTerminal>();
  auto program = startOnTerminal(*terminal);
  ASSERT_TRUE(terminal->waitFor("%  Running executables"));
  const auto engines = root().shell("cd /run/com.corvane.installer && ls -d com.corvane.installer.[0-9]*");
  terminal.reset();
  EXPECT_EQ(program.wait().exitCode, 75);
  letGoOn();
  const std::string name = engines.standardOutput;
  EXPECT_EQ(runFrontEnd(watchCommand(static_cast<pid_t>(std::stol(name.substr(name.rfind('.') + 1))))).exitCode, 0);
}

TEST_F(FrontEndOnTerminal, FollowsTheWidth) {
  makeProductThatWaits();
  support::PseudoTerminal terminal(30);
  auto program = startOnTerminal(terminal);
  ASSERT_TRUE(terminal.waitFor("%  Running exec"));
  const std::string narrow = terminal.soFar();
  terminal.setColumns(100);
  ASSERT_TRUE(terminal.waitFor("..]")) << "a wide line has room for a bar";
  ASSERT_TRUE(terminal.waitFor("%  Running executables"));
  letGoOn();
  EXPECT_EQ(program.wait().exitCode, 0);
  EXPECT_NE(narrow.find("\x1b[K"), std::string::npos);
  for (std::size_t at = 0; (at = narrow.find("\x1b[K", at)) != std::string::npos; at += 3) {
    EXPECT_LT(std::min(narrow.find('\r', at), narrow.size()) - at - 3, 30U);
  }
}

TEST_F(FrontEndOnTerminal, PrintsPlainLinesWhereALineCannotBeCleared) {
  makeProduct();
  support::PseudoTerminal terminal;
  auto program = startOnTerminal(terminal, "dumb");
  EXPECT_EQ(program.wait().exitCode, 0);
  EXPECT_EQ(terminal.everything().find('\x1b'), std::string::npos);
  EXPECT_TRUE(terminal.everything().starts_with("Checking the bundle\r\n")) << terminal.everything();
}

}  // namespace
}  // namespace tests
