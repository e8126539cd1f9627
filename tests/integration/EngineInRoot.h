#pragma once

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/integration/InPrivateRoot.h"
#include "tests/support/BundleMaker.h"

namespace tests {

/// The real engine, started as root from its bundle in a private root directory.
class EngineInRoot : public InPrivateRoot {
 protected:
  static constexpr const char* kEngine = "/Volumes/Disk Image/Installer.app/Contents/MacOS/InstallationDeployer";
  static constexpr const char* kReceipt = "/Library/Application Support/Corvane/Guard/Installer.app";

  BundleMaker& bundle() { return bundle_; }

  /// Brings the bundle as it is now to its place in the root.
  void deliverBundle() {
    static_cast<void>(root().run({"/bin/rm", "-rf", kBundle}));
    root().copyIn(bundle_.path(), kBundle);
  }
  support::Outcome runEngine(const std::vector<std::string>& options, const support::RunOptions& surroundings = {}) {
    std::vector<std::string> arguments{kEngine};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return root().run(arguments, surroundings);
  }
  support::Outcome install(const support::RunOptions& surroundings = {}) {
    return runEngine({"--install"}, surroundings);
  }

  /// The engine's processes that run in the root, with their command lines.
  std::string enginesRunning() {
    return root()
        .shell("for p in /proc/[0-9]*; do grep -qa '[I]nstallationDeployer' $p/cmdline 2>/dev/null && echo $p; done")
        .standardOutput;
  }
  /// Waits until no process of the engine is left; false when one stays.
  bool noEngineIsLeft() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!enginesRunning().empty()) {
      if (std::chrono::steady_clock::now() > deadline) {
        return false;
      }
      std::this_thread::yield();
    }
    return true;
  }

 private:
  BundleMaker bundle_{CORVANE_ENGINE};
};

}  // namespace tests
