#include <sys/syscall.h>

#include <cerrno>

#include "InstallationDeployer/run/Usage.h"
#include "tests/integration/EngineInRoot.h"
#include "tests/support/FaultyRun.h"

namespace tests {
namespace {

using support::EngineRole;
using support::FaultOutcome;
using support::FaultyRun;

/// Installs in which one call of the system fails, for failures that nothing else brings about.
class InstallWithFault : public EngineInRoot {
 protected:
  void prepare() override { deliverBundle(); }
  [[nodiscard]] std::optional<std::string> whyImpossible() override {
    const auto reason = EngineInRoot::whyImpossible();
    return reason ? reason : FaultyRun::whyImpossible();
  }
  /// Lets one call after the other fail, each in a run of its own, until a run logs an error that begins so. Nothing
  /// when no run does.
  std::optional<FaultOutcome> runThatLogs(const std::string& beginning, long call) {
    for (unsigned long number = 1;; ++number) {
      makeRoot();
      deliverBundle();
      FaultOutcome run = FaultyRun(root(), {kEngine, "--install"}, {{call}, EngineRole::Engine, number, EIO}).finish();
      if (!run.reached) {
        return std::nullopt;
      }
      if (loggedBeginning(run.outcome, "Error", beginning)) {
        return run;
      }
    }
  }
};

TEST_F(InstallWithFault, AVolumeThatCannotBeAskedForItsSpaceEndsTheRun) {
  bundle().stageFile("Core", "/opt/core", "x");
  bundle().addComponent("Core", "1", kProduct);
  const auto run = runThatLogs("Failed to read system volume attributes. Error Domain=", SYS_statfs);
  ASSERT_TRUE(run);
  EXPECT_EQ(run->outcome.exitCode, 1) << run->outcome.description();
  EXPECT_FALSE(root().exists("/opt/core"));
  EXPECT_FALSE(root().exists(kReceipt));
}

TEST_F(InstallWithFault, ARealUserThatCannotBeSetEndsTheRunWithTheUsage) {
  const FaultOutcome run =
      FaultyRun(root(), {kEngine, "--install"}, {{SYS_setuid}, EngineRole::Engine, 1, EAGAIN}).finish();
  ASSERT_TRUE(run.reached);
  EXPECT_EQ(run.outcome.exitCode, 1) << run.outcome.description();
  EXPECT_EQ(logged(run.outcome, "Debug", "Failed to set Real UID to effective UID (0)"), 1);
  EXPECT_EQ(logged(run.outcome, "Error", "usage failure launching InstallationDeployer"), 1);
  EXPECT_NE(run.outcome.standardError.find(deployer::usageText()), std::string::npos) << run.outcome.standardError;
  EXPECT_FALSE(loggedBeginning(run.outcome, "Debug", "exiting the main thread"));
}

}  // namespace
}  // namespace tests
