#include <sys/syscall.h>

#include <cerrno>

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

}  // namespace
}  // namespace tests
