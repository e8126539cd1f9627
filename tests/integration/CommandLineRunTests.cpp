#include <fcntl.h>

#include "InstallationDeployer/run/Usage.h"
#include "tests/integration/EngineInRoot.h"

namespace tests {
namespace {

class CommandLineRun : public EngineInRoot {
 protected:
  void prepare() override { deliverBundle(); }
  static bool showsUsage(const support::Outcome& outcome) {
    return outcome.standardError.find(deployer::usageText()) != std::string::npos &&
           logged(outcome, "Error", "usage failure launching InstallationDeployer");
  }
};

TEST_F(CommandLineRun, EveryInvalidCommandLineShowsTheUsageAndEndsWithItsCode) {
  struct Case {
    std::vector<std::string> options;
    int exitCode;
  };
  const std::vector<Case> cases = {
      {{}, 1},
      {{"--ui"}, 1},
      {{"-?"}, 1},
      {{"--help"}, 1},
      {{"--install", "word"}, 1},
      {{"--install", "--remove"}, 1},
      {{"--receipt", "--install"}, 1},
      {{"--receipt", "--remove"}, 1},
      {{"--receipt", "--product_name", "P"}, 1},
      {{"--install", "--product_name"}, 0},
      {{"--product_name"}, 0},
  };
  for (const Case& tried : cases) {
    const auto outcome = runEngine(tried.options);
    EXPECT_EQ(outcome.exitCode, tried.exitCode) << outcome.description();
    EXPECT_TRUE(showsUsage(outcome)) << outcome.standardError;
    EXPECT_TRUE(outcome.standardOutput.empty());
  }
}

TEST_F(CommandLineRun, NobodyButRootMayRunAnyMode) {
  support::RunOptions asUser;
  asUser.user = 501;
  asUser.group = 501;
  for (const auto& options : {std::vector<std::string>{"--install", "--product_name", "P"},
                              {"--ui", "--install", "--product_name", "P"},
                              {"--remove"},
                              {"--ui", "--remove"},
                              {"--receipt"}}) {
    const auto outcome = runEngine(options, asUser);
    EXPECT_EQ(outcome.exitCode, 1) << outcome.description();
    EXPECT_TRUE(logged(outcome, "Debug", "int main(int, char **): euid = 501")) << outcome.standardError;
    EXPECT_EQ(logged(outcome, "Error", "The engine must run as root; its effective user is 501."), 1);
    EXPECT_TRUE(showsUsage(outcome)) << outcome.standardError;
    EXPECT_FALSE(loggedBeginning(outcome, "Debug", "exiting the main thread")) << outcome.standardError;
  }
}

TEST_F(CommandLineRun, StartIsLoggedWithPathsAndArguments) {
  const auto outcome = runEngine({"--install", "--product_name", "Nothing"});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_TRUE(logged(outcome, "Debug", std::string("executablePath = ") + kEngine));
  EXPECT_TRUE(logged(outcome, "Debug", std::string("configuration.bundlePath = ") + kBundle));
  EXPECT_TRUE(logged(outcome, "Debug", "Working directory = /"));
  EXPECT_TRUE(logged(outcome, "Debug", "argument = --install"));
  EXPECT_TRUE(logged(outcome, "Debug", "argument = --product_name"));
  EXPECT_FALSE(logged(outcome, "Debug", "argument = Nothing"));
  EXPECT_TRUE(logged(outcome, "Debug", "int main(int, char **): euid = 0"));
  EXPECT_TRUE(logged(outcome, "Debug", "exiting the main thread with error code: 1"));
  EXPECT_NE(outcome.standardError.find(" Corvane Installer["), std::string::npos);
}

TEST_F(CommandLineRun, RelativeExecutablePathIsUsedAsItIs) {
  support::RunOptions inBundle;
  inBundle.currentDirectory = kBundle;
  const auto outcome = root().run({"Contents/MacOS/InstallationDeployer", "--install"}, inBundle);
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_TRUE(logged(outcome, "Debug", "configuration.bundlePath = Contents/MacOS/InstallationDeployer/../../.."))
      << outcome.standardError;
}

TEST_F(CommandLineRun, ClosedStandardDescriptorsHarmNothing) {
  bundle().stageFile("Core", "/opt/core", "content");
  bundle().addComponent("Core", "1", kProduct);
  deliverBundle();
  support::RunOptions closed;
  closed.closedDescriptors = {0, 1, 2};
  const auto outcome = install(closed);
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(root().readFile("/opt/core"), "content");
}

}  // namespace
}  // namespace tests
