#include "tests/integration/EngineInRoot.h"

namespace tests {
namespace {

/// The engine with a standard error that is a full pipe. Nobody reads it, unless the test does.
class UnreadOutput : public EngineInRoot {
 protected:
  void prepare() override {
    bundle().stageFile("Core", "/opt/guard/core", "core");
    bundle().addComponent("Core", "1.0", kProduct);
    deliverBundle();
  }
  /// The shell holds the pipe open at both ends, in its descriptor 3.
  support::Outcome inShellWithFullPipe(const std::string& commands) {
    return root().shell("mkfifo /run/unread && exec 3<>/run/unread && head -c 65536 /dev/zero >&3 && engine='" +
                        std::string(kEngine) + "' && " + commands);
  }
};

TEST_F(UnreadOutput, DoesNotKeepARunFromEnding) {
  const auto outcome = inShellWithFullPipe("\"$engine\" --install 2>&3");
  ASSERT_FALSE(outcome.timedOut);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(root().readFile("/opt/guard/core"), "core");
  EXPECT_TRUE(root().exists(kReceipt));
}

TEST_F(UnreadOutput, OfAReaderThatStoppedDoesNotEither) {
  const auto outcome = inShellWithFullPipe(
      "{ cat <&3 >/dev/null & reader=$!; kill -STOP $reader; \"$engine\" --install 2>&3; code=$?; kill -KILL $reader; "
      "exit $code; }");
  ASSERT_FALSE(outcome.timedOut);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_TRUE(root().exists(kReceipt));
}

TEST_F(UnreadOutput, IsToldHowMuchItMissedOnceItIsReadAgain) {
  // A program of the product empties the pipe in the middle of the run.
  bundle().stageFile("Reader", "/opt/guard/read", "#!/bin/sh\nexec head -c 65536 /run/unread >/dev/null\n", 0755);
  bundle().addComponent("Reader", "1.0", kProduct,
                        dictionary({{"ListOfExecutables",
                                     array({dictionary({{"Path", "/opt/guard/read"}, {"ExecuteOnInstall", true}})})}}));
  deliverBundle();
  const auto outcome =
      inShellWithFullPipe("{ \"$engine\" --install 2>&3; code=$?; echo end >&3; sed '/^end$/q' <&3 >&2; exit $code; }");
  ASSERT_FALSE(outcome.timedOut);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_NE(outcome.standardError.find(" messages could not be written to standard error.\n"), std::string::npos)
      << outcome.standardError;
  EXPECT_EQ(logged(outcome, "Notice", "Installation complete"), 1) << outcome.standardError;
}

}  // namespace
}  // namespace tests
