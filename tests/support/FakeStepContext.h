#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/steps/StepContext.h"
#include "general/foundation/Paths.h"
#include "tests/support/FakeChangeRecord.h"

namespace tests {

/// A run without a controller, for tests of single steps: it holds what the steps ask for and remembers what they tell.
class FakeStepContext : public deployer::StepContext {
 public:
  explicit FakeStepContext(std::string bundlePath) : manifest_(bundlePath) {
    configuration_.setBundlePath(std::move(bundlePath));
    configuration_.setTargetPath("/");
    configuration_.setInstall(true);
  }

  deployer::QVNInstallConfiguration& configuration() override { return configuration_; }
  deployer::QVNInstallerManifest& manifest() override { return manifest_; }
  FakeChangeRecord& changes() override { return changes_; }
  void setInstallerState(deployer::QVNInstallerState state) override { states.push_back(state); }
  bool installationCancelled() const override { return cancelled; }
  std::string installerPath() const override { return configuration_.bundlePath().value_or(""); }
  std::string installerRootPath() const override {
    return foundation::paths::append(installerPath(), deployer::kQVNPayloadRootPath);
  }

  std::vector<deployer::QVNInstallerState> states;
  std::atomic<bool> cancelled = false;

 private:
  deployer::QVNInstallConfiguration configuration_;
  deployer::QVNInstallerManifest manifest_;
  FakeChangeRecord changes_;
};

}  // namespace tests
