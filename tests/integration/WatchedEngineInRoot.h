#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/integration/EngineInRoot.h"

namespace tests {

/// The real engine, watched by processes of their own in the same private root. The product's only program waits in the
/// middle of the install until the test lets it go on, so that what a watcher meets does not depend on time.
class WatchedEngineInRoot : public EngineInRoot {
 protected:
  static constexpr const char* kWatcher = "/run/status-watcher";

  void prepare() override { root().copyIn(CORVANE_STATUS_WATCHER, kWatcher); }

  /// A product whose installation waits in the state 17 (running executables) until letGoOn().
  void makeProductThatWaits() {
    bundle().stageFile("Core", "/opt/guard/wait", "#!/bin/sh\nread line </run/gate\n", 0755);
    bundle().stageFile("Core", "/Library/LaunchDaemons/com.corvane.guard.plist", "<plist/>");
    bundle().addComponent(
        "Core", "1.0", kProduct,
        dictionary(
            {{"ListOfExecutables", array({dictionary({{"Path", "/opt/guard/wait"}, {"ExecuteOnInstall", true}})})}}));
    deliverBundle();
    EXPECT_TRUE(root().shell("mkfifo /run/gate").succeeded());
  }
  void letGoOn() { EXPECT_TRUE(root().shell("echo >/run/gate").succeeded()); }

  support::RunningProgram startEngine(const std::vector<std::string>& options,
                                      const support::RunOptions& surroundings = {}) {
    std::vector<std::string> arguments{kEngine};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return root().start(arguments, surroundings);
  }
  support::RunningProgram startWatchedInstall() { return startEngine({"--ui", "--install"}); }

  /// Returns once watchers can reach the engine.
  static void waitForService(support::RunningProgram& engine) {
    ASSERT_TRUE(engine.waitForStandardError("posting com.corvane.installer.deployer.started"))
        << engine.standardErrorSoFar();
  }
  /// Returns once the product's program runs.
  static void waitForProgram(support::RunningProgram& engine) {
    ASSERT_TRUE(engine.waitForStandardError("launching /opt/guard/wait")) << engine.standardErrorSoFar();
  }
  /// Returns once the engine waits for nothing but its watchers.
  static void waitForEndOfWork(support::RunningProgram& engine) {
    ASSERT_TRUE(engine.waitForStandardError("self.runLoopShouldKeepRunning = 1")) << engine.standardErrorSoFar();
  }

  std::vector<std::string> watcherCommand(const support::RunningProgram& engine,
                                          const std::vector<std::string>& commands) {
    std::vector<std::string> arguments{kWatcher, std::to_string(engine.process())};
    arguments.insert(arguments.end(), commands.begin(), commands.end());
    return arguments;
  }
  /// What a watcher prints that carries out these commands.
  std::string watch(const support::RunningProgram& engine, const std::vector<std::string>& commands,
                    const support::RunOptions& surroundings = {}) {
    return root().run(watcherCommand(engine, commands), surroundings).standardOutput;
  }
  support::RunningProgram startWatcher(const support::RunningProgram& engine, const std::vector<std::string>& commands,
                                       const support::RunOptions& surroundings = {}) {
    return root().start(watcherCommand(engine, commands), surroundings);
  }
  /// Hears the distributed notifications about an object; returns once it listens.
  support::RunningProgram startListener(const std::string& object) {
    auto listener = root().start({kWatcher, "listen", object});
    EXPECT_TRUE(listener.waitForStandardOutput("listening"));
    return listener;
  }
  static std::string serviceNameOf(const support::RunningProgram& engine) {
    return "com.corvane.installer." + std::to_string(engine.process());
  }
  static support::RunOptions asUser() {
    support::RunOptions options;
    options.user = 501;
    options.group = 501;
    return options;
  }
};

}  // namespace tests
