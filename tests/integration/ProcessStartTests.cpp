#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/integration/StepInRoot.h"

namespace {

using support::CommandRule;
using support::Outcome;
using support::RecordedCall;

using Vectors = std::vector<std::vector<std::string>>;

class ProcessStart : public tests::StepInRoot {
 protected:
  struct Contents {
    std::vector<std::string> daemons = {};
    std::vector<std::string> agents = {};
    bool kext = false;
  };

  void component(const std::string& name, const Contents& contents) {
    writeComponent(name, PropertyList::dictionary(
                             {{std::string(deployer::kManifestListOfLaunchDaemons), PropertyList(contents.daemons)},
                              {std::string(deployer::kManifestListOfLaunchAgents), PropertyList(contents.agents)},
                              {std::string(deployer::kManifestRebuildKextCache), contents.kext}}));
  }
  void onlyComponent(const Contents& contents) {
    writeIndex({"Core"});
    component("Core", contents);
  }
  Outcome start(const std::vector<std::string>& components = {"Core"}) {
    return root().run(command("start-processes", components));
  }
  void failAlways(const std::string& pattern) {
    CommandRule rule;
    rule.pattern = pattern;
    rule.exitCode = 1;
    root().setCommandRules({rule});
  }
  Vectors launched() {
    Vectors vectors;
    for (const RecordedCall& call : root().recordedCalls()) {
      EXPECT_EQ(call.path, call.arguments.front());
      vectors.push_back(call.arguments);
    }
    return vectors;
  }
  static std::vector<std::string> loadDaemon(const std::string& name) {
    return {"/bin/launchctl", "load", "-w", "/Library/LaunchDaemons/" + name + ".plist"};
  }
  static std::vector<std::string> loadAgent(int process, const std::string& user, const std::string& name) {
    return {"/bin/launchctl",
            "bsexec",
            std::to_string(process),
            "sudo",
            "-u",
            user,
            "/bin/launchctl",
            "load",
            "-w",
            "/Library/LaunchAgents/" + name + ".plist"};
  }
};

TEST_F(ProcessStart, DaemonsAreLoadedInOrderEachOnce) {
  writeIndex({"A", "B"});
  component("A", {.daemons = {"com.example.d1", "d2"}});
  component("B", {.daemons = {"d2", "d.3"}});
  const Outcome outcome = start({"A", "B"});
  EXPECT_EQ(outcome.standardOutput, "success=1 state=18 published=18\n") << outcome.standardError;
  EXPECT_EQ(launched(), (Vectors{loadDaemon("com.example.d1"), loadDaemon("d2"), loadDaemon("d.3")}));
}

TEST_F(ProcessStart, ADaemonThatFailsToLoadIsLoggedAndTheNextOneIsLoaded) {
  onlyComponent({.daemons = {"bad", "good"}});
  root().setCommandRules({CommandRule{.pattern = "*bad.plist",
                                      .exitCode = 5,
                                      .standardError = "no such job\n",
                                      .standardErrorBytes = 2000,
                                      .standardOutputBytes = 500000}});
  const Outcome outcome = start();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=18 published=18\n") << outcome.standardError;
  EXPECT_EQ(launched(), (Vectors{loadDaemon("bad"), loadDaemon("good")}));
  EXPECT_EQ(logged(outcome, "Error", "Failed to launch daemon bad. Continuing."), 1);
  EXPECT_FALSE(loggedBeginning(outcome, "Error", "Failed to launch daemon good"));
  const std::string arguments = "(\n    load,\n    \"-w\",\n    /Library/LaunchDaemons/bad.plist\n)";
  EXPECT_EQ(logged(outcome, "Debug",
                   "Task status for /bin/launchctl with args: " + arguments +
                       "\n\tTermination status: 5, output: no such job\n" + std::string(988, 'e')),
            1)
      << outcome.standardError;
}

TEST_F(ProcessStart, AMissingLaunchctlIsLoggedForEveryDaemonAndIsNoFailure) {
  onlyComponent({.daemons = {"d1", "d2"}});
  ASSERT_TRUE(root().shell("rm /bin/launchctl").succeeded());
  const Outcome outcome = start();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=18 published=18\n") << outcome.standardError;
  EXPECT_EQ(logged(outcome, "Error", "Failed to launch daemon d1. Continuing."), 1);
  EXPECT_EQ(logged(outcome, "Error", "Failed to launch daemon d2. Continuing."), 1);
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Launching task /bin/launchctl with args: ("));
}

TEST_F(ProcessStart, WithTwoComponentsAskingForItTheKextFolderIsTouchedOnce) {
  root().recordCommand("/usr/bin/touch");
  writeIndex({"A", "B"});
  component("A", {.kext = true});
  component("B", {.kext = true});
  const Outcome outcome = start({"A", "B"});
  EXPECT_EQ(outcome.standardOutput, "success=1 state=18 published=18\n") << outcome.standardError;
  EXPECT_EQ(launched(), (Vectors{{"/usr/bin/touch", "/Library/Extensions"}}));
  EXPECT_NE(outcome.standardError.find("[QVNProcessStartStrategy.touchKextsFromPlan: successfully refreshed kext "
                                       "installation directory]\n"),
            std::string::npos);
}

TEST_F(ProcessStart, OnAnOldSystemTheSystemsKextFolderIsTouched) {
  root().recordCommand("/usr/bin/touch");
  writePropertyList("/System/Library/CoreServices/SystemVersion.plist",
                    PropertyList::dictionary({{"ProductVersion", "10.8.5"}}));
  onlyComponent({.kext = true});
  static_cast<void>(start());
  EXPECT_EQ(launched(), (Vectors{{"/usr/bin/touch", "/System/Library/Extensions"}}));
}

TEST_F(ProcessStart, ATouchThatFailsIsLoggedAndIsNoFailure) {
  root().recordCommand("/usr/bin/touch");
  failAlways("/usr/bin/touch*");
  onlyComponent({.daemons = {"d1"}, .kext = true});
  const Outcome outcome = start();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=18 published=18,18\n");
  EXPECT_EQ(launched(), (Vectors{{"/usr/bin/touch", "/Library/Extensions"}, loadDaemon("d1")}));
  EXPECT_NE(outcome.standardError.find("[QVNProcessStartStrategy.touchKextsFromPlan: failed to refresh kext "
                                       "installation directory]\n"),
            std::string::npos);
}

TEST_F(ProcessStart, WithNobodyLoggedInAgentsAreSkippedAndTheStateBecomesSuccess) {
  if (!root().hasProcesses()) {
    GTEST_SKIP() << "the root shows the host's processes: " << root().whyNoMounts();
  }
  onlyComponent({.daemons = {"d1"}, .agents = {"a1"}});
  const Outcome outcome = start();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=0 published=18\n") << outcome.standardError;
  EXPECT_EQ(launched(), (Vectors{loadDaemon("d1")}));
  EXPECT_EQ(logged(outcome, "Notice",
                   "Could not find user id (0) or loginwindow pid (0) to launch agents. Skipping launching agents."),
            1);
}

class LoggedIn : public ProcessStart {
 protected:
  [[nodiscard]] bool needsProc() const override { return true; }
};

TEST_F(LoggedIn, AgentsAreLoadedInsideTheSessionOfTheConsolesUser) {
  const int first = root().startProcess("loginwindow", 501);
  static_cast<void>(root().startProcess("loginwindow", 502));
  root().setConsoleUser(501);
  onlyComponent({.agents = {"a1", "a2"}});
  const Outcome outcome = start();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=18 published=18\n") << outcome.standardError;
  EXPECT_EQ(launched(), (Vectors{loadAgent(first, "#501", "a1"), loadAgent(first, "#501", "a2")}));
  EXPECT_EQ(logged(outcome, "Info",
                   "Launching /Library/LaunchAgents/a1.plist with uid: 501, loginWindowPID: " + std::to_string(first)),
            1);
}

TEST_F(LoggedIn, TheLoginScreenOfRootIsNobodyLoggedIn) {
  static_cast<void>(root().startProcess("loginwindow", 0));
  onlyComponent({.agents = {"a1"}});
  const Outcome outcome = start();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=0 published=\n") << outcome.standardError;
  EXPECT_TRUE(launched().empty());
}

TEST_F(LoggedIn, AnAgentThatFailsToLoadIsLoggedAndTheNextOneIsLoaded) {
  const int window = root().startProcess("loginwindow", 501);
  failAlways("*bad.plist");
  onlyComponent({.agents = {"bad", "good"}});
  const Outcome outcome = start();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=18 published=18\n") << outcome.standardError;
  EXPECT_EQ(launched(), (Vectors{loadAgent(window, "#501", "bad"), loadAgent(window, "#501", "good")}));
  EXPECT_EQ(logged(outcome, "Error", "Failed to launch agent bad. Continuing."), 1);
}

TEST_F(LoggedIn, AnAgentsLabelThatIsNoFileNameNeverReachesLaunchctl) {
  static_cast<void>(root().startProcess("loginwindow", 501));
  onlyComponent({.agents = {"../../Users/evil"}});
  const Outcome outcome = start();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=18 published=18\n") << outcome.standardError;
  EXPECT_TRUE(launched().empty());
  EXPECT_EQ(logged(outcome, "Error", "Failed to launch agent ../../Users/evil. Continuing."), 1);
}

TEST_F(LoggedIn, ExecutablesTheKextFolderDaemonsAndAgentsAreStartedInThisOrder) {
  const int window = root().startProcess("loginwindow", 501);
  root().recordCommand("/usr/bin/touch");
  root().writeFile("/Library/Guard/setup", "#!/bin/sh\n/bin/launchctl marker \"$1\"\n", 0755);
  writeIndex({"Core"});
  writeComponent(
      "Core", PropertyList::dictionary(
                  {{std::string(deployer::kManifestListOfExecutables),
                    PropertyList(PropertyList::Array{PropertyList::dictionary(
                        {{std::string(deployer::kManifestFilePath), "/Library/Guard/setup"},
                         {std::string(deployer::kManifestListOfArguments), PropertyList(std::vector<std::string>{"x"})},
                         {std::string(deployer::kManifestExecuteOnInstall), true}})})},
                   {std::string(deployer::kManifestRebuildKextCache), true},
                   {std::string(deployer::kManifestListOfLaunchDaemons), PropertyList(std::vector<std::string>{"d"})},
                   {std::string(deployer::kManifestListOfLaunchAgents), PropertyList(std::vector<std::string>{"a"})}}));
  const Outcome outcome = start();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=18 published=17,18,18,18\n") << outcome.standardError;
  EXPECT_EQ(launched(), (Vectors{{"/bin/launchctl", "marker", "x"},
                                 {"/usr/bin/touch", "/Library/Extensions"},
                                 loadDaemon("d"),
                                 loadAgent(window, "#501", "a")}));
}

}  // namespace
