#pragma once

#include <string>
#include <vector>

#include "tests/integration/WatchedEngineInRoot.h"

namespace tests {

/// A product in two versions, each with a daemon, and a launchctl that keeps a run in its middle until the test lets it
/// go on: installs where they load the daemon, upgrades and removals where they unload it.
///
///   1.0  Core /opt/guard/core ("core 1.0"), /opt/guard/old
///   1.1  Core /opt/guard/core ("core 1.1"), /opt/guard/new
class TwoRuns : public WatchedEngineInRoot {
 protected:
  static constexpr const char* kNewBundle = "/Volumes/New/Installer.app";
  static constexpr const char* kNewEngine = "/Volumes/New/Installer.app/Contents/MacOS/InstallationDeployer";
  static constexpr const char* kReceiptEngine =
      "/Library/Application Support/Corvane/Guard/Installer.app/Contents/MacOS/InstallationDeployer";

  [[nodiscard]] bool needsProc() const override { return true; }

  void prepare() override {
    WatchedEngineInRoot::prepare();
    makeVersion(bundle(), "1.0", "/opt/guard/old");
    makeVersion(newBundle_, "1.1", "/opt/guard/new");
    deliverBundle();
    root().copyIn(newBundle_.path(), kNewBundle);
    root().makeDirectory("/opt");
    root().makeDirectory("/Library/Application Support");
    root().makeDirectory("/Library/LaunchDaemons");
    static_cast<void>(root().run({"/bin/rm", "/bin/launchctl"}));
    root().writeFile("/bin/launchctl",
                     "#!/bin/sh\n"
                     "rm /run/hold 2>/dev/null || exit 0\n"
                     "echo >/run/held\n"
                     "read line </run/gate\n",
                     0755);
    EXPECT_TRUE(root().shell("mkfifo /run/held /run/gate").succeeded());
  }

  support::RunningProgram start(const std::vector<std::string>& command) { return root().start(command); }
  /// Starts an engine that stays in the middle of its run until letGoOn().
  support::RunningProgram startAndHold(const std::vector<std::string>& command) {
    root().writeFile("/run/hold", "");
    auto engine = root().start(command);
    EXPECT_TRUE(root().shell("read line </run/held").succeeded()) << engine.standardErrorSoFar();
    return engine;
  }
  static std::string noticeOfWaitFor(const support::RunningProgram& engine, const std::string& product = kProduct) {
    return "Waiting for process " + std::to_string(engine.process()) + ", which changes the product \"" + product +
           "\".";
  }
  /// Returns once `second` waits for `first`.
  static void waitUntilItWaits(support::RunningProgram& second, const support::RunningProgram& first,
                               const std::string& product = kProduct) {
    ASSERT_TRUE(second.waitForStandardError(noticeOfWaitFor(first, product))) << second.standardErrorSoFar();
  }

  void expectVersion(const std::string& version) {
    EXPECT_EQ(root().readFile("/opt/guard/core"), "core " + version);
    EXPECT_EQ(root().exists("/opt/guard/old"), version == "1.0");
    EXPECT_EQ(root().exists("/opt/guard/new"), version == "1.1");
    EXPECT_NE(root().readFile(std::string(kReceipt) + "/Contents/Install/Manifests/Core.plist").find(version),
              std::string::npos);
  }
  void expectNothing() {
    for (const char* item :
         {"/opt/guard", "/Library/LaunchDaemons/com.corvane.guard.plist", "/Library/Application Support/Corvane"}) {
      EXPECT_FALSE(root().exists(item)) << item;
    }
  }
  void installOldVersion() {
    const auto outcome = install();
    ASSERT_EQ(outcome.exitCode, 0) << outcome.description();
  }
  BundleMaker& newBundle() { return newBundle_; }
  void deliverNewBundle() {
    static_cast<void>(root().run({"/bin/rm", "-rf", kNewBundle}));
    root().copyIn(newBundle_.path(), kNewBundle);
  }

  static void makeVersion(BundleMaker& made, const std::string& version, const std::string& file,
                          const std::string& product = kProduct) {
    made.stageFile("Core", "/opt/guard/core", "core " + version, 0755);
    made.stageFile("Core", file, "only in " + version);
    made.stageFile("Core", "/Library/LaunchDaemons/com.corvane.guard.plist", "<plist/>");
    made.addComponent("Core", version, product);
  }

 private:
  BundleMaker newBundle_{CORVANE_ENGINE};
};

}  // namespace tests
