#include <regex>

#include "tests/integration/FrontEndInRoot.h"

namespace tests {
namespace {

using support::Outcome;
using support::RunningProgram;

/// A front end of somebody who has read docs/protocol.md and nothing else.
class FrontEndFromThePage : public FrontEndInRoot {
 protected:
  [[nodiscard]] std::optional<std::string> whyImpossible() override {
    const auto reason = FrontEndInRoot::whyImpossible();
    return reason || root().exists(kPython) ? reason : "there is no " + std::string(kPython);
  }
  void prepare() override {
    FrontEndInRoot::prepare();
    root().copyIn(CORVANE_PYTHON_FRONT_END, kScript);
    makeProductThatWaits();
  }
  RunningProgram startScript(const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments{kPython, "-I", kScript, kEngine};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return root().start(arguments);
  }

  static constexpr const char* kPython = "/usr/bin/python3";
  static constexpr const char* kScript = "/run/front_end.py";
};

TEST_F(FrontEndFromThePage, FollowsARunToItsEnd) {
  auto script = startScript();
  ASSERT_TRUE(script.waitForStandardOutput("state 17 progress ")) << script.standardErrorSoFar();
  letGoOn();
  const Outcome outcome = script.wait();
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_TRUE(std::regex_search(outcome.standardOutput, std::regex("\nstate 0 progress 100\n$")))
      << outcome.standardOutput;
  EXPECT_TRUE(root().exists(kReceipt));
}

TEST_F(FrontEndFromThePage, CancelsARun) {
  auto script = startScript({"17"});
  ASSERT_TRUE(script.waitForStandardOutput("cancelling\n")) << script.standardErrorSoFar();
  letGoOn();
  const Outcome outcome = script.wait();
  EXPECT_EQ(outcome.exitCode, 21) << outcome.description();
  EXPECT_TRUE(std::regex_search(outcome.standardOutput, std::regex("\nstate 21 progress [0-9]+\n$")))
      << outcome.standardOutput;
  EXPECT_FALSE(root().exists(kReceipt));
}

}  // namespace
}  // namespace tests
