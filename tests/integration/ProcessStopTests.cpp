#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "tests/integration/StepInRoot.h"

namespace {

using support::CommandRule;
using support::Outcome;
using support::RecordedCall;

using Vectors = std::vector<std::vector<std::string>>;

constexpr uid_t kUser = 501;
const std::string kIdentifier = "com.example.guard";
const std::string kApplication = "/Applications/Guard.app";

class ProcessStop : public tests::StepInRoot {
 protected:
  struct Contents {
    std::vector<std::string> daemons = {};
    std::vector<std::string> agents = {};
    PropertyList::Array executables = {};
  };

  void component(const Contents& contents) {
    writeIndex({"Core"});
    writeComponent("Core",
                   PropertyList::dictionary(
                       {{std::string(deployer::kManifestListOfLaunchDaemons), PropertyList(contents.daemons)},
                        {std::string(deployer::kManifestListOfLaunchAgents), PropertyList(contents.agents)},
                        {std::string(deployer::kManifestListOfExecutables), PropertyList(contents.executables)}}));
  }
  static PropertyList application(bool runOnce = false) {
    return PropertyList::dictionary({{std::string(deployer::kManifestIsApplication), true},
                                     {std::string(deployer::kManifestRunOnce), runOnce},
                                     {std::string(deployer::kManifestBundleIdentifier), kIdentifier}});
  }
  Outcome stop(const std::vector<std::string>& more = {"Core"}) { return root().run(command("stop-processes", more)); }

  void writeInformation(const std::string& bundle, const std::string& identifier,
                        const PropertyList& displayName = {}) {
    writePropertyList(bundle + "/Contents/Info.plist",
                      PropertyList::dictionary({{"CFBundleIdentifier", identifier},
                                                {"CFBundleName", "Short Name"},
                                                {"CFBundleDisplayName", displayName}}));
  }
  pid_t startFrom(const std::string& bundle, uid_t user = kUser) {
    return root().startProcess("Guard", user, bundle + "/Contents/MacOS/Guard");
  }
  Vectors launched() {
    Vectors vectors;
    for (const RecordedCall& call : root().recordedCalls()) {
      vectors.push_back(call.arguments);
    }
    return vectors;
  }
  void failAlways(const std::string& pattern) {
    CommandRule rule;
    rule.pattern = pattern;
    rule.exitCode = 1;
    root().setCommandRules({rule});
  }
  static std::vector<std::string> unload(const std::string& daemon) {
    return {"/bin/launchctl", "unload", "/Library/LaunchDaemons/" + daemon + ".plist"};
  }
  static std::vector<std::string> inSession(pid_t window, const std::vector<std::string>& arguments) {
    std::vector<std::string> all{"/bin/launchctl", "bsexec",        std::to_string(window), "sudo", "-u",
                                 "#501",           "/bin/launchctl"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
  }
  bool needsProcesses() { return !root().hasProcesses(); }
};

TEST_F(ProcessStop, AManifestThatCannotBeReadFailsTheStepBeforeAnythingIsStopped) {
  component({.daemons = {"com.example.daemon"}});
  root().makeDirectory(inBundle("Contents/Install/Manifests/Folder.plist"));
  const Outcome outcome = stop({"Core", "Folder"});
  EXPECT_EQ(outcome.standardOutput, "success=0 state=1 published=\n") << outcome.standardError;
  EXPECT_TRUE(loggedBeginning(outcome, "Error", "Failed to read manifest for Folder. Error Domain="));
  EXPECT_TRUE(launched().empty());
}

TEST_F(ProcessStop, DaemonsAreUnloadedInOrder) {
  component({.daemons = {"d.one", "d.two"}});
  const Outcome outcome = stop();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=19 published=19\n") << outcome.standardError;
  EXPECT_EQ(launched(), (Vectors{unload("d.one"), unload("d.two")}));
}

TEST_F(ProcessStop, ADaemonThatDoesNotUnloadIsRemovedOnceByItsBareName) {
  component({.daemons = {"d.one", "d.two"}});
  failAlways("*d.one*");
  const Outcome outcome = stop();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=19 published=19\n") << outcome.standardError;
  EXPECT_EQ(launched(), (Vectors{unload("d.one"), {"/bin/launchctl", "remove", "d.one"}, unload("d.two")}));
  EXPECT_FALSE(loggedAnything(outcome, "Error"));
}

TEST_F(ProcessStop, ALabelThatLeadsElsewhereIsNeverUsedAsAFile) {
  component({.daemons = {"../../tmp/evil"}});
  EXPECT_EQ(stop().standardOutput, "success=1 state=19 published=19\n");
  EXPECT_EQ(launched(), (Vectors{{"/bin/launchctl", "remove", "../../tmp/evil"}}));
}

TEST_F(ProcessStop, NothingToStopChangesNoState) {
  component({});
  const Outcome outcome = stop();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=0 published=\n");
  EXPECT_EQ(logged(outcome, "Debug", "No launch agents to remove."), 1);
  EXPECT_TRUE(launched().empty());
}

TEST_F(ProcessStop, AgentsAreUnloadedInTheSessionOfTheConsolesUser) {
  if (needsProcesses()) {
    GTEST_SKIP() << root().whyNoMounts();
  }
  root().setConsoleUser(kUser);
  const pid_t window = root().startProcess("loginwindow", kUser);
  component({.agents = {"a.one", "a.two"}});
  failAlways("*a.two.plist*");
  const Outcome outcome = stop();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=19 published=19\n") << outcome.standardError;
  EXPECT_EQ(launched(), (Vectors{inSession(window, {"unload", "/Library/LaunchAgents/a.one.plist"}),
                                 inSession(window, {"unload", "/Library/LaunchAgents/a.two.plist"}),
                                 inSession(window, {"remove", "a.two"})}));
  EXPECT_EQ(logged(outcome, "Info", "Removing agent a.one with uid: 501, loginWindowPID: " + std::to_string(window)),
            1);
}

TEST_F(ProcessStop, WithNobodyLoggedInAgentsAreSkippedAndApplicationsAreTerminatedAllTheSame) {
  if (needsProcesses()) {
    GTEST_SKIP() << root().whyNoMounts();
  }
  writeInformation(kApplication, kIdentifier);
  const pid_t process = startFrom(kApplication);
  component({.daemons = {"d.one"}, .agents = {"a.one"}, .executables = {application()}});
  const Outcome outcome = stop();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=0 published=19\n") << outcome.standardError;
  EXPECT_EQ(launched(), Vectors{unload("d.one")});
  EXPECT_EQ(logged(outcome, "Notice",
                   "Could not find user id (0) or loginwindow pid (0) to launch agents. Skipping launching agents."),
            1);
  EXPECT_EQ(root().signalThatEnds(process), SIGKILL);
}

TEST_F(ProcessStop, EveryInstanceOfAnApplicationIsTerminatedWhoeverRunsIt) {
  if (needsProcesses()) {
    GTEST_SKIP() << root().whyNoMounts();
  }
  writeInformation(kApplication, kIdentifier, "Guard of the Example");
  writeInformation("/Users/Shared/Copy.app", kIdentifier);
  const pid_t one = startFrom(kApplication);
  const pid_t other = startFrom("/Users/Shared/Copy.app", 502);
  component({.executables = {application()}});
  const Outcome outcome = stop();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=0 published=\n") << outcome.standardError;
  EXPECT_EQ(logged(outcome, "Info", "Terminating application Guard of the Example"), 1);
  EXPECT_EQ(logged(outcome, "Info", "Terminating application Short Name"), 1);
  EXPECT_EQ(root().signalThatEnds(one), SIGKILL);
  EXPECT_EQ(root().signalThatEnds(other), SIGKILL);
}

TEST_F(ProcessStop, ARunOnceApplicationAndPlainExecutablesAreLeftAlone) {
  if (needsProcesses()) {
    GTEST_SKIP() << root().whyNoMounts();
  }
  writeInformation(kApplication, kIdentifier);
  const pid_t process = startFrom(kApplication);
  const PropertyList plain =
      PropertyList::dictionary({{std::string(deployer::kManifestFilePath), kApplication + "/Contents/MacOS/Guard"},
                                {std::string(deployer::kManifestBundleIdentifier), kIdentifier}});
  component({.executables = {application(true), plain}});
  EXPECT_EQ(stop().standardOutput, "success=1 state=0 published=\n");
  EXPECT_TRUE(root().processRuns(process));
}

TEST_F(ProcessStop, OnlyWhatRunsFromABundleOfThisIdentifierIsTerminated) {
  if (needsProcesses()) {
    GTEST_SKIP() << root().whyNoMounts();
  }
  writeInformation("/Applications/Other.app", "com.example.other");
  writeInformation("/Applications/Beside.app", kIdentifier);
  root().makeDirectory("/Applications/Bare.app/Contents/MacOS");
  root().makeDirectory("/Applications/Pipe.app/Contents/MacOS");
  ASSERT_TRUE(root().shell("mkfifo /Applications/Pipe.app/Contents/Info.plist").succeeded());
  root().writeFile("/Applications/Broken.app/Contents/Info.plist", "bplist00garbage");
  root().writeFile("/Applications/Huge.app/Contents/Info.plist", "x");
  ASSERT_TRUE(root().shell("truncate -s 3G /Applications/Huge.app/Contents/Info.plist").succeeded());
  const std::vector<pid_t> others{
      startFrom("/Applications/Other.app"),
      root().startProcess("Guard", kUser, "/Applications/Beside.app/Contents/Helpers/Guard"),
      root().startProcess("Guard", kUser, "/Applications/Guard"),
      startFrom("/Applications/Bare.app"),
      startFrom("/Applications/Pipe.app"),
      startFrom("/Applications/Broken.app"),
      startFrom("/Applications/Huge.app")};
  component({.executables = {application()}});
  const Outcome outcome = stop();
  EXPECT_EQ(outcome.standardOutput, "success=1 state=0 published=\n") << outcome.standardError;
  EXPECT_FALSE(loggedAnything(outcome, "Info"));
  for (const pid_t process : others) {
    EXPECT_TRUE(root().processRuns(process));
  }
}

TEST_F(ProcessStop, AStepBoundToTheReceiptStopsNothingElsewhere) {
  component({.daemons = {"d.one"}});
  const Outcome outcome = stop({"--from-receipt-only", "Core"});
  EXPECT_EQ(outcome.standardOutput, "success=0 state=1 published=\n");
  EXPECT_EQ(logged(outcome, "Error",
                   "QVNProcessStopStrategy must run from the receipt location.\n\tCurrently running from: " +
                       std::string(kBundle)),
            1);
  EXPECT_TRUE(launched().empty());
}

TEST_F(ProcessStop, AfterAFailureNothingIsStopped) {
  component({.daemons = {"d.one"}});
  EXPECT_EQ(stop({"--failed", "Core"}).standardOutput, "success=0 state=0 published=\n");
  EXPECT_TRUE(launched().empty());
}

}  // namespace
