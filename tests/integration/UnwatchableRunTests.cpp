#include <sys/syscall.h>

#include <cerrno>

#include "tests/integration/EngineInRoot.h"
#include "tests/support/FaultyRun.h"

namespace tests {
namespace {

using support::EngineRole;
using support::Fault;
using support::FaultOutcome;
using support::FaultyRun;

/// An engine that is to be watched and whose service for watchers cannot be opened: nobody can tell it that its end was
/// seen.
class UnwatchableRun : public EngineInRoot {
 protected:
  [[nodiscard]] std::optional<std::string> whyImpossible() override {
    const auto reason = EngineInRoot::whyImpossible();
    return reason ? reason : FaultyRun::whyImpossible();
  }
  void prepare() override {
    bundle().stageFile("Core", "/opt/guard/core", "core");
    bundle().addComponent("Core", "1.0", kProduct);
    deliverBundle();
  }
  FaultOutcome runWatched(std::vector<long> calls, int error) {
    const Fault fault{std::move(calls), EngineRole::Engine, 1, error};
    return FaultyRun(root(), {kEngine, "--ui", "--install"}, fault).finish();
  }
  void expectInstalledUnwatched(const FaultOutcome& run) {
    ASSERT_TRUE(run.reached);
    ASSERT_FALSE(run.outcome.timedOut) << run.outcome.standardError;
    EXPECT_EQ(run.outcome.exitCode, 0) << run.outcome.standardError;
    EXPECT_EQ(logged(run.outcome, "Error", "Nobody can watch this run: it ends without waiting for a watcher."), 1);
    EXPECT_TRUE(root().exists(kReceipt));
  }
};

TEST_F(UnwatchableRun, WithoutASocketEndsWithItsOwnState) {
  const FaultOutcome run = runWatched({SYS_bind}, EADDRINUSE);
  expectInstalledUnwatched(run);
  EXPECT_EQ(logged(run.outcome, "Error", "Unable to acquire a connection for the installation deployer status service"),
            1);
}

TEST_F(UnwatchableRun, WithoutAThreadEndsWithItsOwnState) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the first thread that the engine starts is the thread sanitizer's own";
#endif
  const FaultOutcome run = runWatched({SYS_clone3, SYS_clone}, EAGAIN);
  expectInstalledUnwatched(run);
  EXPECT_TRUE(loggedBeginning(run.outcome, "Error",
                              "Unable to start the thread of the installation deployer status service. "));
}

TEST_F(UnwatchableRun, WhoseFolderSomebodyKeepsLockedGoesOnAndEndsWithItsOwnState) {
  const std::string folder = "/var/run/com.corvane.installer";
  ASSERT_TRUE(
      root().shell("mkdir -p " + folder + " && chmod 755 " + folder + " && touch " + folder + "/.lock").succeeded());
  // The shell holds the lock until the engine has ended.
  const auto outcome =
      root().shell("exec 9<" + folder + "/.lock; flock 9 && '" + std::string(kEngine) + "' --ui --install 9<&-");
  EXPECT_EQ(outcome.exitCode, 0) << outcome.description();
  EXPECT_EQ(logged(outcome, "Error", "Unable to lock " + folder + "/.lock. Another process does not let go of it."), 1);
  EXPECT_EQ(logged(outcome, "Error", "Unable to acquire a connection for the installation deployer status service"), 1);
  EXPECT_EQ(logged(outcome, "Error", "Nobody can watch this run: it ends without waiting for a watcher."), 1);
  EXPECT_TRUE(root().exists(kReceipt));
}

TEST_F(UnwatchableRun, ThatFailsEndsWithItsFailure) {
  root().writeFile("/opt", "in the way of a directory");
  const FaultOutcome run = runWatched({SYS_bind}, EADDRINUSE);
  ASSERT_TRUE(run.reached);
  ASSERT_FALSE(run.outcome.timedOut) << run.outcome.standardError;
  EXPECT_EQ(run.outcome.exitCode, 1) << run.outcome.standardError;
}

}  // namespace
}  // namespace tests
