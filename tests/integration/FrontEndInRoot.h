#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/integration/WatchedEngineInRoot.h"

namespace tests {

/// The real front end, beside the real engine in a bundle in a private root.
class FrontEndInRoot : public WatchedEngineInRoot {
 protected:
  static constexpr const char* kFrontEnd = "/Volumes/Disk Image/Installer.app/Contents/MacOS/Installer";
  static constexpr const char* kReceiptFrontEnd =
      "/Library/Application Support/Corvane/Guard/Installer.app/Contents/MacOS/Installer";
  static constexpr const char* kLog = "/var/log/com.corvane.installer.log";
  static constexpr const char* kWaiting = "Running executables";
  static constexpr const char* kCancelling = "Cancelling: the engine finishes the step that is running";

  [[nodiscard]] bool needsProc() const override { return true; }

  void prepare() override {
    WatchedEngineInRoot::prepare();
    std::filesystem::copy_file(CORVANE_FRONT_END, bundle().path("Contents/MacOS/Installer"),
                               std::filesystem::copy_options::overwrite_existing);
  }

  void makeProduct() {
    bundle().stageFile("Core", "/opt/guard/core", "core", 0755);
    bundle().addComponent("Core", "1.0", kProduct);
    deliverBundle();
  }
  static std::vector<std::string> command(std::vector<std::string> options) {
    options.insert(options.begin(), kFrontEnd);
    return options;
  }
  support::Outcome runFrontEnd(const std::vector<std::string>& options = {},
                               const support::RunOptions& surroundings = {}) {
    return root().run(command(options), surroundings);
  }
  support::RunningProgram startFrontEnd(const std::vector<std::string>& options = {},
                                        const support::RunOptions& surroundings = {}) {
    return root().start(command(options), surroundings);
  }
  std::vector<std::string> watchCommand(pid_t process) { return {"--watch", std::to_string(process)}; }

  /// The number of the engine that a front end has started and said so.
  static pid_t engineOf(support::RunningProgram& frontEnd) {
    const std::string mark = "Engine started: process ";
    EXPECT_TRUE(frontEnd.waitForStandardOutput(mark)) << frontEnd.standardErrorSoFar();
    const std::string shown = frontEnd.standardOutputSoFar();
    const auto start = shown.find(mark);
    return start == std::string::npos ? 0 : static_cast<pid_t>(std::stol(shown.substr(start + mark.size())));
  }
  /// Whether the process runs: one that has ended but was not waited for does not.
  bool runs(pid_t process) {
    return root().shell("grep -q '^State:.[^Z]' /proc/" + std::to_string(process) + "/status").succeeded();
  }
  void kill(pid_t process, const std::string& signal) {
    EXPECT_TRUE(root().shell("kill -" + signal + " " + std::to_string(process)).succeeded());
  }
};

}  // namespace tests
