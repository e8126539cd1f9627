#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "InstallationDeployer/processes/LaunchdJob.h"
#include "InstallationDeployer/processes/QVNProcessStartStrategy.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/StepTest.h"

namespace {

using deployer::QVNProcessStartStrategy;
using foundation::PropertyList;
using tests::CapturedLog;
using States = std::vector<deployer::QVNInstallerState>;

class ProcessStart : public tests::StepTest {
 protected:
  /// A script that leaves a line in the journal when it runs.
  std::string makeScript(const std::string& name, const std::string& commands = "") {
    std::string script = path("bin/" + name);
    writeFile(script, "#!/bin/sh\necho " + name + " >> '" + path("journal") + "'\n" + commands + "\n", 0755);
    return script;
  }
  std::string journal() { return contentOf(path("journal")); }

  static PropertyList executable(const std::string& executablePath,
                                 std::vector<std::pair<std::string, PropertyList>> more = {}) {
    more.emplace_back(deployer::kManifestFilePath, executablePath);
    more.emplace_back(deployer::kManifestExecuteOnInstall, true);
    return PropertyList::dictionary(std::move(more));
  }
  static PropertyList executables(PropertyList::Array entries) {
    return PropertyList::dictionary(
        {{std::string(deployer::kManifestListOfExecutables), PropertyList(std::move(entries))}});
  }
  static PropertyList labels(std::string_view key, const std::vector<std::string>& names) {
    return PropertyList::dictionary({{std::string(key), PropertyList(names)}});
  }

  /// One component with these contents, the only one of the product and of the plan.
  std::unique_ptr<QVNProcessStartStrategy> stepFor(const PropertyList& componentManifest) {
    writeIndex(std::vector<std::string>{"Core"});
    writeComponent("Core", componentManifest);
    return makeStep<QVNProcessStartStrategy>({"Core"});
  }
};

TEST_F(ProcessStart, AManifestThatCannotBeReadFailsTheStepBeforeAnythingIsStarted) {
  writeIndex(std::vector<std::string>{"Core", "Folder"});
  writeComponent("Core", executables({executable(makeScript("once"))}));
  std::filesystem::create_directory(run().manifest().getPathForComponent("Folder"));
  const auto step = makeStep<QVNProcessStartStrategy>({"Core", "Folder"});
  const CapturedLog log;
  EXPECT_FALSE(step->execute(true));
  EXPECT_EQ(step->installerState(), deployer::QVNInstallerStateFailed);
  EXPECT_EQ(journal(), "");
}

TEST_F(ProcessStart, DoesNothingAfterAFailedStep) {
  const auto step = stepFor(executables({executable(makeScript("once"))}));
  const CapturedLog log;
  EXPECT_FALSE(step->execute(false));
  EXPECT_EQ(journal(), "");
  EXPECT_EQ(step->installerState(), deployer::QVNInstallerStateSuccess);
  EXPECT_TRUE(run().states.empty());
  EXPECT_EQ(log.count("Debug", ">>> executing step with plan: (Core)"), 1U);
  EXPECT_FALSE(mentions(log, "filtered plan"));
}

TEST_F(ProcessStart, APlanWithNothingToStartSucceedsAndLeavesTheStateUnchanged) {
  const auto step = stepFor(PropertyList::dictionary());
  const CapturedLog log;
  EXPECT_TRUE(step->execute(true));
  EXPECT_TRUE(run().states.empty());
  EXPECT_FALSE(mentions(log, "setInstallerState:"));
  EXPECT_EQ(log.count("Debug", "No launch agents to load."), 1U);
  EXPECT_TRUE(mentions(log,
                       "[QVNProcessStartStrategy.touchKextsFromPlan: There is no reason to refresh kext "
                       "installation directory]\n"));
}

TEST_F(ProcessStart, ARunWithoutAPlanSucceeds) {
  QVNProcessStartStrategy step({}, "step", nullptr, run(), nullptr);
  const CapturedLog log;
  EXPECT_TRUE(step.execute(true));
  EXPECT_TRUE(run().states.empty());
}

TEST_F(ProcessStart, StartsOnlyComponentsThatBelongToTheProduct) {
  writeIndex(std::vector<std::string>{"Core", "Extra"});
  writeComponent("Core", executables({executable(makeScript("core"))}));
  writeComponent("Foreign", executables({executable(makeScript("foreign"))}));
  const auto step = makeStep<QVNProcessStartStrategy>({"Foreign", "Core"});
  const CapturedLog log;
  EXPECT_TRUE(step->execute(true));
  EXPECT_EQ(journal(), "core\n");
  EXPECT_EQ(log.count("Debug", "<step> filtered plan for Product.of.a.unit.test: (Core)"), 1U);
}

TEST_F(ProcessStart, RunsAnExecutableWithItsArgumentsInItsOwnFolder) {
  const std::string script = makeScript("program", "pwd >> ../journal; printf '[%s]' \"$@\" >> ../journal");
  const std::vector<std::string> arguments{"--mode", "two words", ""};
  const auto step = stepFor(
      executables({executable(script, {{std::string(deployer::kManifestListOfArguments), PropertyList(arguments)}})}));
  const CapturedLog log;
  EXPECT_TRUE(step->execute(true));
  EXPECT_EQ(journal(), "program\n" + path("bin") + "\n[--mode][two words][]");
  EXPECT_EQ(run().states, States{deployer::QVNInstallerStateRunningExecutables});
  EXPECT_TRUE(mentions(log, "<Debug>: launchExecutablesFromPlan:: launching " + script + " with arguments: ("));
  EXPECT_EQ(log.count("Info", "Running " + script + " with uid: " + std::to_string(getuid()) +
                                  ", euid: " + std::to_string(geteuid())),
            1U);
}

TEST_F(ProcessStart, RunsAnExecutableWithoutAListOfArguments) {
  const std::string script = makeScript("program", "echo $# >> ../journal");
  const auto step = stepFor(executables({executable(script)}));
  const CapturedLog log;
  EXPECT_TRUE(step->execute(true));
  EXPECT_EQ(journal(), "program\n0\n");
  EXPECT_TRUE(mentions(log, "launching " + script + " with arguments: (null)\n"));
}

TEST_F(ProcessStart, RunsExecutablesInTheOrderOfComponentsAndLists) {
  writeIndex(std::vector<std::string>{"A", "B"});
  writeComponent("A", executables({executable(makeScript("a1")), executable(makeScript("a2"))}));
  writeComponent("B", executables({executable(makeScript("b1"))}));
  const auto step = makeStep<QVNProcessStartStrategy>({});
  const CapturedLog log;
  EXPECT_TRUE(step->launchExecutablesFromPlan({"B", "A"}));
  EXPECT_EQ(journal(), "b1\na1\na2\n");
}

class RunOnce : public ProcessStart {
 protected:
  std::unique_ptr<QVNProcessStartStrategy> step() {
    return stepFor(executables({executable(script(), {{std::string(deployer::kManifestRunOnce), true}})}));
  }
  std::string script() { return makeScript("once"); }
  void expectSkipped(const CapturedLog& log) {
    EXPECT_EQ(journal(), "");
    EXPECT_EQ(
        log.count("Info", "Updating current install. Skipping executable due to run once flag: " + path("bin/once")),
        1U);
  }
};

TEST_F(RunOnce, ARunOnceExecutableRunsOnAFreshInstall) {
  const auto fresh = step();
  const CapturedLog log;
  EXPECT_TRUE(fresh->execute(true));
  EXPECT_EQ(journal(), "once\n");
}

TEST_F(RunOnce, ARunOnceExecutableIsSkippedWhenAReceiptExists) {
  run().configuration().setHasInstallerReceipt(true);
  const auto upgrade = step();
  const CapturedLog log;
  EXPECT_TRUE(upgrade->execute(true));
  expectSkipped(log);
  EXPECT_EQ(run().states, States{deployer::QVNInstallerStateRunningExecutables});
}

TEST_F(RunOnce, ARunOnceExecutableIsSkippedWhenTheRunIsAnUpdate) {
  run().configuration().setTreatAsUpdate(true);
  const auto update = step();
  const CapturedLog log;
  EXPECT_TRUE(update->execute(true));
  expectSkipped(log);
}

TEST_F(ProcessStart, AnExecutableWithoutTheRunOnceFlagRunsOnAnUpdateToo) {
  run().configuration().setHasInstallerReceipt(true);
  const auto step = stepFor(executables({executable(makeScript("always"))}));
  const CapturedLog log;
  EXPECT_TRUE(step->execute(true));
  EXPECT_EQ(journal(), "always\n");
}

TEST_F(ProcessStart, AnExecutableWithExecuteOnInstallFalseIsNeverRun) {
  const std::string script = makeScript("never");
  const auto step =
      stepFor(executables({PropertyList::dictionary({{std::string(deployer::kManifestFilePath), script},
                                                     {std::string(deployer::kManifestExecuteOnInstall), false}}),
                           PropertyList::dictionary({{std::string(deployer::kManifestFilePath), script}})}));
  const CapturedLog log;
  EXPECT_TRUE(step->execute(true));
  EXPECT_EQ(journal(), "");
  EXPECT_EQ(log.count("Debug", "Updating current install. Skipping executable: " + script), 2U);
}

TEST_F(ProcessStart, AnExecutableWithIsApplicationTrueIsNeverRun) {
  const auto step = stepFor(
      executables({executable(makeScript("application"), {{std::string(deployer::kManifestIsApplication), true}})}));
  const CapturedLog log;
  EXPECT_TRUE(step->execute(true));
  EXPECT_EQ(journal(), "");
  EXPECT_EQ(log.count("Debug", "launchExecutablesFromPlan:: skipping application launch. Needs implementation."), 1U);
}

TEST_F(ProcessStart, AFailingExecutableFailsTheStepAndEndsIt) {
  const std::string failing = makeScript("failing", "echo no luck >&2; exit 3");
  const auto step = stepFor(PropertyList::dictionary(
      {{std::string(deployer::kManifestListOfExecutables),
        PropertyList(PropertyList::Array{executable(failing), executable(makeScript("later"))})},
       {std::string(deployer::kManifestListOfLaunchDaemons), PropertyList(std::vector<std::string>{"../daemon"})}}));
  const CapturedLog log;
  EXPECT_FALSE(step->execute(true));
  EXPECT_EQ(journal(), "failing\n");
  EXPECT_EQ(step->installerState(), deployer::QVNInstallerStateFailed);
  EXPECT_EQ(run().states, States{deployer::QVNInstallerStateRunningExecutables});
  EXPECT_TRUE(
      mentions(log, "<Error>: Failed to execute " + failing + " Termination status: 3, errorData: no luck\n\t. \n"));
  EXPECT_FALSE(mentions(log, "daemon"));
}

TEST_F(ProcessStart, ErrorOutputOf5000BytesIsLoggedAsItsFirst1000Bytes) {
  const std::string script = makeScript("verbose", "printf '%5000s' '' | tr ' ' e >&2; exit 1");
  const auto step = stepFor(executables({executable(script)}));
  const CapturedLog log;
  EXPECT_FALSE(step->execute(true));
  EXPECT_EQ(log.count("Error", "Failed to execute " + script +
                                   " Termination status: 1, errorData: " + std::string(1000, 'e') + ". "),
            1U);
}

TEST_F(ProcessStart, AnExecutableThatPrintsMoreThanAPipeHoldsIsNotBlocked) {
  const std::string script =
      makeScript("flood", "head -c 1000000 /dev/zero; head -c 1000000 /dev/zero >&2; echo finished >> ../journal");
  const auto step = stepFor(executables({executable(script)}));
  const CapturedLog log;
  EXPECT_TRUE(step->execute(true));
  EXPECT_EQ(journal(), "flood\nfinished\n");
}

TEST_F(ProcessStart, ErrorOutputBeyondASCIIIsWrittenAsHexadecimalBytes) {
  const std::string script = makeScript("umlaut", "printf 'gr\\303\\266\\377n' >&2; exit 1");
  const auto step = stepFor(executables({executable(script)}));
  const CapturedLog log;
  EXPECT_FALSE(step->execute(true));
  EXPECT_TRUE(mentions(log, "errorData: gr\\xc3\\xb6\\xffn. \n"));
}

TEST_F(ProcessStart, AnExecutableEndedByASignalFailsWithTheSignalsNumber) {
  const std::string script = makeScript("killed", "kill -TERM $$");
  const auto step = stepFor(executables({executable(script)}));
  const CapturedLog log;
  EXPECT_FALSE(step->execute(true));
  EXPECT_EQ(log.count("Error", "Failed to execute " + script + " Termination status: " + std::to_string(SIGTERM) +
                                   ", errorData: . "),
            1U);
}

class NotLaunchable : public ProcessStart {
 protected:
  void expectFailure(const PropertyList& entry, const std::string& printedPath) {
    const auto step = stepFor(executables({entry, executable(makeScript("later"))}));
    const CapturedLog log;
    EXPECT_FALSE(step->execute(true));
    EXPECT_EQ(step->installerState(), deployer::QVNInstallerStateFailed);
    EXPECT_EQ(journal(), "");
    EXPECT_TRUE(mentions(log, "<Error>: Failed to run executable " + printedPath + ". ")) << log.text();
    EXPECT_FALSE(mentions(log, "Failed to execute"));
  }
};

TEST_F(NotLaunchable, AMissingExecutableFailsTheStep) { expectFailure(executable(path("none")), path("none")); }

TEST_F(NotLaunchable, AnExecutableWithoutExecutePermissionFailsTheStep) {
  writeFile(path("plain"), "#!/bin/sh\n", 0644);
  expectFailure(executable(path("plain")), path("plain"));
}

TEST_F(NotLaunchable, AnEntryWithoutAPathFailsTheStep) {
  expectFailure(PropertyList::dictionary({{std::string(deployer::kManifestExecuteOnInstall), true}}), "(null)");
}

TEST_F(NotLaunchable, ARelativePathFailsTheStepAndIsNotSearched) { expectFailure(executable("true"), "true"); }

TEST_F(NotLaunchable, AnArgumentThatIsNoTextFailsTheStepInsteadOfBeingLeftOut) {
  const PropertyList list(PropertyList::Array{"--delete", 1});
  const std::string script = makeScript("program");
  expectFailure(executable(script, {{std::string(deployer::kManifestListOfArguments), list}}), script);
}

TEST_F(NotLaunchable, AListOfArgumentsOfAnotherTypeFailsTheStep) {
  const std::string script = makeScript("program");
  expectFailure(executable(script, {{std::string(deployer::kManifestListOfArguments), "--all"}}), script);
}

TEST_F(NotLaunchable, AnEntryThatIsNoDictionaryIsSkipped) {
  const auto step = stepFor(executables({PropertyList("text"), executable(makeScript("later"))}));
  const CapturedLog log;
  EXPECT_TRUE(step->execute(true));
  EXPECT_EQ(journal(), "later\n");
  EXPECT_EQ(log.count("Debug", "Updating current install. Skipping executable: (null)"), 1U);
}

TEST_F(ProcessStart, ALabelThatIsNoFileNameNeverReachesLaunchctl) {
  const std::vector<std::string> hostile{"../../tmp/evil", "sub/name", "..", ".", "", std::string(260, 'n')};
  const auto step = stepFor(labels(deployer::kManifestListOfLaunchDaemons, hostile));
  const CapturedLog log;
  EXPECT_TRUE(step->execute(true));
  for (const std::string& label : hostile) {
    EXPECT_EQ(log.count("Error", "Failed to launch daemon " + label + ". Continuing."), 1U) << label;
  }
  EXPECT_FALSE(mentions(log, "Launching task"));
  EXPECT_EQ(run().states, States{deployer::QVNInstallerStateStartingServices});
  EXPECT_EQ(step->installerState(), deployer::QVNInstallerStateStartingServices);
}

TEST_F(ProcessStart, AnAgentIsLoadedInsideTheSessionOfItsUser) {
  EXPECT_EQ(deployer::launchd::argumentsInSession({501, 88}, {"load", "-w", "/Library/LaunchAgents/NAME.plist"}),
            (std::vector<std::string>{"bsexec", "88", "sudo", "-u", "#501", "/bin/launchctl", "load", "-w",
                                      "/Library/LaunchAgents/NAME.plist"}));
}

class LaunchTask : public ProcessStart {};

TEST_F(LaunchTask, SucceedsWhenTheCommandExitsWithZero) {
  const std::string script = makeScript("command", "echo a warning >&2");
  const CapturedLog log;
  EXPECT_TRUE(QVNProcessStartStrategy::launchTask(script, {"one", "two three"}));
  const std::string call = script + " with args: (\n    one,\n    \"two three\"\n)";
  EXPECT_EQ(log.count("Info", "Launching task " + call + " uid: " + std::to_string(getuid()) +
                                  ", euid: " + std::to_string(geteuid())),
            1U)
      << log.text();
  EXPECT_EQ(log.count("Debug", "Task status for " + call + "\n\tTermination status: 0, output: a warning"), 1U)
      << log.text();
}

TEST_F(LaunchTask, FailsWhenTheCommandExitsWithAnotherStatus) {
  const std::string script = makeScript("command", "exit 7");
  const CapturedLog log;
  EXPECT_FALSE(QVNProcessStartStrategy::launchTask(script, {}));
  EXPECT_TRUE(mentions(log, "Termination status: 7, output: \n"));
}

TEST_F(LaunchTask, FailsWhenASignalEndsTheCommand) {
  const CapturedLog log;
  EXPECT_FALSE(QVNProcessStartStrategy::launchTask(makeScript("command", "kill -KILL $$"), {}));
}

using SessionLookup = ProcessStart;

TEST_F(SessionLookup, ThatFailsGivesZeroAndSaysNothing) {
  const CapturedLog log;
  const tests::NoDescriptors none;
  EXPECT_EQ(QVNProcessStartStrategy::userId(), 0U);
  EXPECT_EQ(QVNProcessStartStrategy::loginWindowPID(), 0);
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(SessionLookup, ThatFailedCountsAsNobodyLoggedInAndTheReasonIsTold) {
  const CapturedLog log;
  const tests::NoDescriptors none;
  EXPECT_FALSE(deployer::launchd::sessionOf(0, 0));
  EXPECT_EQ(log.texts("Error"),
            std::vector<std::string>{"Unable to look for the login window of the user at the console. Launch agents "
                                     "are left alone. Too many open files"});
  EXPECT_EQ(log.texts("Notice"),
            std::vector<std::string>{"Could not find user id (0) or loginwindow pid (0) to launch agents. Skipping "
                                     "launching agents."});
}

TEST_F(SessionLookup, ThatFailedOnceIsMadeUpFor) {
  const CapturedLog log;
  for (const auto& [user, window] : {std::pair(0U, 0), std::pair(501U, 0), std::pair(0U, 88)}) {
    const auto session = deployer::launchd::sessionOf(user, window, [] { return platform::LoginWindow{501, 88}; });
    ASSERT_TRUE(session);
    EXPECT_EQ(session->userId, 501U);
    EXPECT_EQ(session->loginWindowPID, 88);
  }
  EXPECT_TRUE(log.messages().empty());
}

TEST_F(SessionLookup, NeedsBothTheUserAndTheLoginWindow) {
  const CapturedLog log;
  const auto nobody = [] { return platform::LoginWindow(); };
  EXPECT_FALSE(deployer::launchd::sessionOf(501, 0, nobody));
  EXPECT_FALSE(deployer::launchd::sessionOf(0, 88, nobody));
  EXPECT_EQ(log.texts("Notice"),
            (std::vector<std::string>{"Could not find user id (501) or loginwindow pid (0) to launch agents. Skipping "
                                      "launching agents.",
                                      "Could not find user id (0) or loginwindow pid (88) to launch agents. Skipping "
                                      "launching agents."}));
  const auto session = deployer::launchd::sessionOf(501, 88);
  ASSERT_TRUE(session);
  EXPECT_EQ(deployer::launchd::argumentsInSession(*session, {"load", "-w", "/Library/LaunchAgents/NAME.plist"}),
            (std::vector<std::string>{"bsexec", "88", "sudo", "-u", "#501", "/bin/launchctl", "load", "-w",
                                      "/Library/LaunchAgents/NAME.plist"}));
}

TEST_F(LaunchTask, FailsWhenTheCommandCannotBeStarted) {
  const CapturedLog log;
  EXPECT_FALSE(QVNProcessStartStrategy::launchTask(path("none"), {"load"}));
  EXPECT_TRUE(mentions(log, "<Error>: Launching task " + path("none") + " with args: (\n\t    load\n\t) failed. "))
      << log.text();
  EXPECT_FALSE(mentions(log, "Task status for"));
}

TEST_F(LaunchTask, LogsErrorOutputOf999BytesWholeAnd1001BytesCut) {
  const std::string script = makeScript("command", "printf \"%$1s\" '' | tr ' ' e >&2");
  const CapturedLog log;
  EXPECT_TRUE(QVNProcessStartStrategy::launchTask(script, {"999"}));
  EXPECT_TRUE(QVNProcessStartStrategy::launchTask(script, {"1001"}));
  EXPECT_TRUE(mentions(log, "output: " + std::string(999, 'e') + "\n"));
  EXPECT_TRUE(mentions(log, "output: " + std::string(1000, 'e') + "\n"));
  EXPECT_FALSE(mentions(log, std::string(1001, 'e')));
}

}  // namespace
