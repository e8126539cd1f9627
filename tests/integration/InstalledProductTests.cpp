#include <gtest/gtest.h>

#include <string>

#include "tests/integration/EngineInRoot.h"

namespace {

using support::Outcome;
using support::Snapshot;

const std::string kFolder = "/Library/Guard";

/// What the real engine installed, with the manifests of its bundle.
class InstalledProduct : public tests::EngineInRoot {
 protected:
  static constexpr const char* kDriver = "/run/step-driver";

  void prepare() override {
    root().copyIn(CORVANE_STEP_DRIVER, kDriver);
    bundle().stageDirectory("Core", kFolder, 0751, 501, 20);
    bundle().stageFile("Core", kFolder + "/bin/guardd", "#!/bin/sh\nexit 0\n", 0755);
    bundle().stageFile("Core", kFolder + "/secret", "secret", 0600, 501, 20);
    bundle().stageLink("Core", kFolder + "/current", "bin", 501, 20);
    bundle().addComponent("Core", "1.0", kProduct);
    bundle().stageFile("Agent", "/Library/LaunchAgents/com.corvane.agent.plist", "<plist/>");
    bundle().addComponent("Agent", "1.0", kProduct);
    deliverBundle();
    // The system's own folders are there on every machine, and stay.
    root().makeDirectory("/Library/Application Support");
    root().makeDirectory("/Library/LaunchAgents");
    before_ = root().snapshot("/Library");
    const auto outcome = install();
    ASSERT_EQ(outcome.exitCode, 0) << outcome.description();
  }
  Outcome step(const std::string& name) { return root().run({kDriver, name, kBundle, kProduct, "Core", "Agent"}); }

  Snapshot before_;
};

TEST_F(InstalledProduct, IsValidUntilSomethingOfItIsGone) {
  EXPECT_EQ(step("validate").standardOutput, "success=1 state=16 published=16\nplan=()\n");
  ASSERT_TRUE(root().shell("rm " + kFolder + "/secret " + kFolder + "/current").succeeded());
  ASSERT_TRUE(root().shell("rm /Library/LaunchAgents/com.corvane.agent.plist").succeeded());
  const Outcome outcome = step("validate");
  EXPECT_EQ(outcome.standardOutput, "success=0 state=16 published=16\nplan=(Core, Core, Agent)\n");
  EXPECT_EQ(logged(outcome, "Info", "File " + kFolder + "/secret is missing. adding Core component to fixPlan"), 1);
}

TEST_F(InstalledProduct, IsRemovedWithoutATraceButItsReceipt) {
  const Outcome outcome = step("remove");
  EXPECT_EQ(outcome.standardOutput, "success=1 state=20 published=20\n") << outcome.standardError;
  ASSERT_TRUE(root().shell("rm -r '/Library/Application Support/Corvane'").succeeded());
  EXPECT_EQ(root().snapshot("/Library"), before_);
}

}  // namespace
