#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "InstallationDeployer/nested/QVNExternalInstallationDeployerStrategy.h"
#include "InstallationDeployer/protocols/QVNInstallationStatusProtocol.h"
#include "general/foundation/Descriptor.h"
#include "general/foundation/propertylist/PropertyList.h"
#include "general/ipc/DistributedNotifications.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRunFolder.h"
#include "tests/support/StepTest.h"

namespace deployer {

/// The step with a stand-in for the other engine, whose product's name tells it what to do.
class ExternalDeployer : public tests::StepTest {
 protected:
  using PropertyList = foundation::PropertyList;
  using States = std::vector<QVNInstallerState>;
  using CapturedLog = tests::CapturedLog;

  void SetUp() override {
    if (const auto reason = tests::enterPrivateRunFolder()) {
      GTEST_SKIP() << *reason;
    }
    std::filesystem::create_directories(external() + "/Contents/MacOS");
    std::filesystem::create_symlink(CORVANE_NESTED_ENGINE_STAND_IN, engine());
    ASSERT_EQ(mkfifo(gate().c_str(), 0600), 0);
  }

  [[nodiscard]] std::string external() const { return path("External.app"); }
  [[nodiscard]] std::string engine() const { return external() + "/Contents/MacOS/InstallationDeployer"; }
  [[nodiscard]] std::string gate() const { return external() + "/gate"; }
  /// Lets the process end that started the engine for the step, once the step follows the engine.
  void endTheWrapperOnceItsEngineIsFollowed(const CapturedLog& log) const {
    waitForLog(log, "[externalDeployer setInstallerState:15]");
    const foundation::Descriptor wrapper(open((external() + "/wrapper").c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(::write(wrapper.number(), "g", 1), 1);
  }
  /// Lets the engine go on that waits at its gate, or gets there; not one that has ended.
  void openGate() const {
    waitUntil([&] {
      const foundation::Descriptor opened(open(gate().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
      return ::write(opened.number(), "g", 1) == 1 ||
             (std::filesystem::exists(external() + "/process") && kill(engineProcess(), 0) != 0);
    });
  }
  /// Of the engine that was started; only after it has said something.
  [[nodiscard]] int engineProcess() const { return std::stoi(contentOf(external() + "/process")); }
  [[nodiscard]] std::string serviceName() const { return "com.corvane.installer." + std::to_string(engineProcess()); }

  QVNExternalInstallationDeployerStrategy& makeStep(const PropertyList& phase) {
    step_ = std::make_unique<QVNExternalInstallationDeployerStrategy>(phase, "externalDeployer", nullptr, run(),
                                                                      std::make_shared<Plan>());
    return *step_;
  }
  QVNExternalInstallationDeployerStrategy& makeStepFor(const std::string& script) {
    return makeStep(PropertyList::dictionary({{"BundlePath", external()}, {"ProductName", script}}));
  }
  bool execute(const std::string& script) { return makeStepFor(script).execute(true); }
  QVNExternalInstallationDeployerStrategy& step() { return *step_; }
  void post(std::string_view name, const PropertyList& userInfo = {}) const {
    ipc::postDistributedNotification({std::string(name), external(), userInfo});
  }
  void postUpdate() const { post(kQVNInstallationStatusUpdatedNotification); }
  void postStart(const std::string& service) const {
    post(kQVNInstallationStatusServiceStartedNotification, PropertyList::dictionary({{"serviceName", service}}));
  }
  static void waitUntil(const std::function<bool()>& condition) {
    while (!condition()) {
      std::this_thread::yield();
    }
  }
  static void waitForLog(const CapturedLog& log, std::string_view part) {
    // A step that ends too early must not hang its test.
    waitUntil([&] { return tests::mentions(log, part) || tests::mentions(log, "exited run loop"); });
    EXPECT_TRUE(tests::mentions(log, part)) << log.text();
  }

 private:
  std::unique_ptr<QVNExternalInstallationDeployerStrategy> step_;
};

}  // namespace deployer
