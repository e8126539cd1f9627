#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "InstallationDeployer/nested/QVNExternalInstallationDeployerStrategy.h"
#include "InstallationDeployer/steps/QVNAggregateInstallStrategy.h"
#include "general/foundation/Thread.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/foundation/execution/Task.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/ipc/CorvaneDistantObject.h"
#include "general/ipc/NotificationObserver.h"
#include "general/ipc/ServiceFolder.h"
#include "tests/unit/InstallationDeployer/nested/ExternalDeployerTest.h"

namespace deployer {
namespace {

namespace fs = std::filesystem;

TEST_F(ExternalDeployer, HandedAFailureDoesNothing) {
  EXPECT_FALSE(makeStepFor("start,0,await-end").execute(false));
  EXPECT_EQ(step().installerState(), 0U);
  EXPECT_FALSE(fs::exists(external() + "/process"));
  EXPECT_TRUE(run().states.empty());
}

TEST_F(ExternalDeployer, StartsTheEngineOfTheBundleAskingForTheProductAndAWatcher) {
  EXPECT_TRUE(execute("start,0,await-end"));
  EXPECT_EQ(contentOf(external() + "/arguments"), "--install\n--ui\n--product_name\nstart,0,await-end\n");
}

TEST_F(ExternalDeployer, ActiveStatesClimbTheTreeOneByOne) {
  auto child = std::make_unique<QVNExternalInstallationDeployerStrategy>(
      PropertyList::dictionary({{"BundlePath", external()}, {"ProductName", "start,gate,15,gate,18,gate,4,await-end"}}),
      "externalDeployer", nullptr, run(), std::make_shared<Plan>());
  const auto& external = *child;
  StepList steps;
  steps.push_back(std::move(child));
  QVNAggregateInstallStrategy root({}, "installer", std::move(steps), nullptr, run());
  const CapturedLog log;
  std::thread pace([&] {
    for (const char* state : {"11", "15", "18"}) {
      waitForLog(log, foundation::format("[installer.externalDeployer setInstallerState:%s]", state));
      openGate();
    }
  });
  EXPECT_FALSE(root.execute(true));
  pace.join();
  EXPECT_EQ(external.installerState(), QVNInstallerStateInsufficientDiskSpace);
  EXPECT_EQ(root.installerState(), QVNInstallerStateInsufficientDiskSpace);
  EXPECT_EQ(run().states,
            (States{QVNInstallerStatePreparing, QVNInstallerStateInstalling, QVNInstallerStateStartingServices}));
}

TEST_F(ExternalDeployer, EveryFailureOfTheEngineBecomesTheStepsOwn) {
  for (const unsigned state : {1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U, 21U}) {
    EXPECT_FALSE(execute("start," + std::to_string(state) + ",await-end"));
    EXPECT_EQ(step().installerState(), state);
  }
}

TEST_F(ExternalDeployer, StateThatNobodyKnowsIsNoFinalOne) {
  const CapturedLog log;
  std::thread pace([&] {
    for (const char* state : {"11", "22"}) {
      waitForLog(log, foundation::format("[externalDeployer setInstallerState:%s]", state));
      openGate();
    }
  });
  EXPECT_TRUE(execute("start,gate,22,gate,0,await-end"));
  pace.join();
  EXPECT_EQ(std::ranges::count(run().states, static_cast<QVNInstallerState>(22)), 1);
}

TEST_F(ExternalDeployer, SaysWhatItDoes) {
  const CapturedLog log;
  EXPECT_TRUE(execute("start,0,await-end"));
  const std::string& thread = foundation::currentThreadName();
  EXPECT_TRUE(log.contains("Debug",
                           "----- added observers for com.corvane.installer.deployer.started and "
                           "com.corvane.installer.update notifications on object: " +
                               external()));
  const ipc::Notification started{"com.corvane.installer.deployer.started", external(),
                                  PropertyList::dictionary({{"serviceName", serviceName()}})};
  EXPECT_EQ(
      log.count("Debug", "----- <" + thread + ">[externalDeployer handleInstallationStatusServiceStartNotification:" +
                             started.description() + "]"),
      1U);
  const std::string asked = "----- <" + thread +
                            ">[QVNExternalInstallationDeployerStrategy updateInstallerState]\n\t"
                            "self.installationDeployer = <CorvaneDistantObject: " +
                            serviceName() + ">\n\t[<QVNInstallationStatusProtocol>" + serviceName() +
                            " getCurrentState]";
  EXPECT_TRUE(log.contains("Debug", asked)) << log.text();
  EXPECT_EQ(log.count("Debug", "Sending shutdownService to service: <QVNInstallationStatusProtocol>" + serviceName()),
            1U);
  EXPECT_EQ(log.count("Debug", "externalDeployer exited run loop with installer state: 0"), 1U);
  EXPECT_TRUE(log.texts("Error").empty());
}

TEST_F(ExternalDeployer, SaysWhichUpdateItHeard) {
  const CapturedLog log;
  std::thread pace([&] {
    waitForLog(log, "[externalDeployer setInstallerState:11]");
    openGate();
  });
  EXPECT_TRUE(execute("start,gate,0,await-end"));
  pace.join();
  const ipc::Notification update{"com.corvane.installer.update", external(), {}};
  EXPECT_TRUE(log.contains("Debug", "----- <" + foundation::currentThreadName() +
                                        ">[externalDeployer handleInstallationStatusUpdateNotification:aNotification]"
                                        "\n\taNotification = " +
                                        update.description()));
}

TEST_F(ExternalDeployer, WithoutABundleFails) {
  const CapturedLog log;
  EXPECT_FALSE(makeStep(PropertyList::dictionary({{"ProductName", "start,0,await-end"}})).execute(true));
  EXPECT_EQ(step().installerState(), QVNInstallerStateFailed);
  EXPECT_EQ(log.texts("Error"), std::vector<std::string>{"External deployer path is invalid"});
  EXPECT_FALSE(fs::exists(external() + "/process"));
}

TEST_F(ExternalDeployer, WithABundleThatIsNoTextFails) {
  const CapturedLog log;
  EXPECT_FALSE(makeStep(PropertyList::dictionary({{"BundlePath", 7}, {"ProductName", "x"}})).execute(true));
  EXPECT_EQ(log.texts("Error"), std::vector<std::string>{"External deployer path is invalid"});
}

TEST_F(ExternalDeployer, WithoutAProductFails) {
  const CapturedLog log;
  EXPECT_FALSE(makeStep(PropertyList::dictionary({{"BundlePath", external()}})).execute(true));
  EXPECT_EQ(step().installerState(), QVNInstallerStateFailed);
  EXPECT_EQ(log.texts("Error"),
            std::vector<std::string>{"No product is named for the external deployer at " + engine()});
  EXPECT_FALSE(fs::exists(external() + "/process"));
}

TEST_F(ExternalDeployer, ThatCanBeNeitherHeardNorReachedEndsTheStepByItsOwnEnd) {
  fs::create_directory("/var/run/com.corvane.installer");
  ASSERT_EQ(chown("/var/run/com.corvane.installer", 65534, 65534), 0);
  const CapturedLog log;
  EXPECT_FALSE(execute("start,0,await-end"));
  EXPECT_EQ(step().installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains(
      "Error", "The external deployer " + engine() + " ended before its final state was known (exit status 0)."));
}

TEST_F(ExternalDeployer, ThatTheSystemCannotStartFailsTheStep) {
  class WithoutProcesses : public QVNExternalInstallationDeployerStrategy {
   public:
    using QVNExternalInstallationDeployerStrategy::QVNExternalInstallationDeployerStrategy;
    bool launchExternalExecutable(const std::string& /*executable*/, const std::string& /*productName*/) override {
      throw foundation::TaskLaunchException("no process left", foundation::TaskLaunchException::Cause::System);
    }
  };
  const CapturedLog log;
  WithoutProcesses step(PropertyList::dictionary({{"BundlePath", external()}, {"ProductName", "start"}}),
                        "externalDeployer", nullptr, run(), std::make_shared<Plan>());
  EXPECT_FALSE(step.execute(true));
  EXPECT_EQ(step.installerState(), QVNInstallerStateFailed);
  EXPECT_TRUE(log.contains("Error", "Failed to launch external deployer at " + engine() + ". no process left"));
}

TEST_F(ExternalDeployer, UpdateBeforeAnyStartEndsTheStepWithSuccess) {
  fs::remove(engine());
  const CapturedLog log;
  std::thread somebody([&] {
    waitForLog(log, "Failed to launch external deployer at " + engine() + ". ");
    postUpdate();
  });
  EXPECT_TRUE(execute("start,4,await-end"));
  somebody.join();
  EXPECT_EQ(step().installerState(), QVNInstallerStateSuccess);
  EXPECT_TRUE(log.contains("Debug", "----- <" + foundation::currentThreadName() +
                                        ">[QVNExternalInstallationDeployerStrategy updateInstallerState]\n\t"
                                        "self.installationDeployer = (null)\n\t[<QVNInstallationStatusProtocol>(null) "
                                        "getCurrentState]"));
  EXPECT_TRUE(log.contains("Debug", "Sending shutdownService to service: <QVNInstallationStatusProtocol>(null)"));
  EXPECT_EQ(log.texts("Error").size(), 1U);
}

TEST_F(ExternalDeployer, ThatCannotBeLaunchedIsWaitedForUntilSomebodyRunsIt) {
  fs::remove(engine());
  const CapturedLog log;
  std::thread somebody([&] {
    waitForLog(log, "Failed to launch external deployer at ");
    // Nothing posts, so the step has only its turns: it is still waiting after some of them.
    EXPECT_FALSE(mentions(log, "exited run loop"));
    postStart("com.corvane.installer.0");
    waitForLog(log, "com.corvane.installer.0 getCurrentState]");
    fs::create_symlink(CORVANE_NESTED_ENGINE_STAND_IN, engine());
    foundation::Task task(engine(), {"start,3,await-end"});
    task.launch();
    task.waitUntilExit();
    EXPECT_EQ(task.terminationStatus(), 3);
  });
  EXPECT_FALSE(execute("start,0,await-end"));
  somebody.join();
  EXPECT_EQ(step().installerState(), QVNInstallerStateIncompatibleProduct);
}

TEST_F(ExternalDeployer, IgnoresWhatIsSaidAboutOtherBundles) {
  const CapturedLog log;
  EXPECT_FALSE(execute("update-other,start,update-other,4,await-end"));
  EXPECT_EQ(step().installerState(), QVNInstallerStateInsufficientDiskSpace);
  EXPECT_FALSE(mentions(log, "object = /somebody/else"));
}

TEST_F(ExternalDeployer, FollowsWhoeverAnnouncesTheBundleAndComesBackWhenNobodyIsThere) {
  const CapturedLog log;
  EXPECT_FALSE(execute("start-other,start,start-other,4,await-end"));
  EXPECT_EQ(step().installerState(), QVNInstallerStateInsufficientDiskSpace);
  EXPECT_TRUE(mentions(log, "[<QVNInstallationStatusProtocol>com.corvane.installer.0 getCurrentState]"));
}

TEST_F(ExternalDeployer, ThatAnnouncedItselfFromAnotherProcessIsFollowedWhenTheChildHasEnded) {
  ASSERT_EQ(mkfifo((external() + "/wrapper").c_str(), 0600), 0);
  const CapturedLog log;
  std::thread pace([&] {
    endTheWrapperOnceItsEngineIsFollowed(log);
    // Gone once the step has looked after it.
    const int wrapping = std::stoi(contentOf(external() + "/wrapper-process"));
    waitUntil([&] { return kill(wrapping, 0) != 0; });
    openGate();
  });
  EXPECT_FALSE(execute("wrap,start,15,gate,4,await-end"));
  pace.join();
  EXPECT_EQ(step().installerState(), QVNInstallerStateInsufficientDiskSpace);
  EXPECT_TRUE(log.texts("Error").empty()) << log.text();
}

TEST_F(ExternalDeployer, ThatAnnouncedItselfFromAnotherProcessAndEndedAfterTheChildIsAFailure) {
  ASSERT_EQ(mkfifo((external() + "/wrapper").c_str(), 0600), 0);
  const CapturedLog log;
  std::thread pace([&] {
    endTheWrapperOnceItsEngineIsFollowed(log);
    openGate();
  });
  EXPECT_FALSE(execute("wrap,start,15,gate,kill"));
  pace.join();
  EXPECT_EQ(step().installerState(), QVNInstallerStateFailed);
  EXPECT_EQ(log.texts("Error"), std::vector<std::string>{"The external deployer " + engine() +
                                                         " ended before its final state was known (exit status 0)."});
}

TEST_F(ExternalDeployer, UpdateBeforeAnyStartEndsTheStepWithSuccessWhileTheChildIsAtWorkAndIsNotKilled) {
  const CapturedLog log;
  std::thread somebody([&] {
    waitUntil([&] { return fs::exists(external() + "/process"); });
    postUpdate();
  });
  EXPECT_TRUE(execute("gate,start,0,await-end"));
  somebody.join();
  EXPECT_EQ(step().installerState(), QVNInstallerStateSuccess);
  EXPECT_TRUE(log.contains("Debug", "Sending shutdownService to service: <QVNInstallationStatusProtocol>(null)"));
  EXPECT_TRUE(log.texts("Error").empty()) << log.text();
  const int child = engineProcess();
  EXPECT_EQ(kill(child, 0), 0);
  // Its work is done before the step that started it is gone, and it is told that its end was seen.
  openGate();
  makeStepFor("");
  EXPECT_NE(kill(child, 0), 0);
  EXPECT_TRUE(log.contains("Notice", foundation::format("Waiting for the external deployer with process %d, which is "
                                                        "still at work.",
                                                        child)));
}

TEST_F(ExternalDeployer, StartWithoutAServiceIsIgnored) {
  fs::remove(engine());
  const CapturedLog log;
  std::thread somebody([&] {
    waitForLog(log, "Failed to launch external deployer at ");
    post(kQVNInstallationStatusServiceStartedNotification);
    waitForLog(log, "handleInstallationStatusServiceStartNotification:");
    postUpdate();
  });
  EXPECT_TRUE(execute("start,4,await-end"));
  somebody.join();
}

TEST_F(ExternalDeployer, ThatEndsWithoutAFinalStateIsAFailureThatNamesIt) {
  const std::vector<std::pair<std::string, std::string>> ends = {{"exit-0", "exit status 0"},
                                                                 {"start,exit-0", "exit status 0"},
                                                                 {"start,15,exit-3", "exit status 3"},
                                                                 {"start,15,kill", "signal 9"},
                                                                 {"kill", "signal 9"},
                                                                 {"start-unheard,exit-4", "exit status 4"}};
  for (const auto& [script, end] : ends) {
    const CapturedLog log;
    EXPECT_FALSE(execute(script)) << script;
    EXPECT_EQ(step().installerState(), QVNInstallerStateFailed) << script;
    EXPECT_EQ(log.texts("Error"), std::vector<std::string>{"The external deployer " + engine() +
                                                           " ended before its final state was known (" + end + ")."})
        << script;
  }
}

TEST_F(ExternalDeployer, ChangeThatNobodyHeardOfIsSeenAllTheSame) {
  const CapturedLog log;
  std::thread pace([&] {
    waitForLog(log, "[externalDeployer setInstallerState:11]");
    openGate();
    waitForLog(log, "[externalDeployer setInstallerState:16]");
    openGate();
  });
  EXPECT_FALSE(execute("start,gate,unheard-16,gate,unheard-5,await-end"));
  pace.join();
  EXPECT_EQ(step().installerState(), 5U);
  EXPECT_EQ(run().states, (States{QVNInstallerStatePreparing, QVNInstallerStateValidating}));
}

TEST_F(ExternalDeployer, StartThatNobodyHeardOfIsSeenAllTheSame) {
  EXPECT_FALSE(execute("start-unheard,7,await-end"));
  EXPECT_EQ(step().installerState(), 7U);
}

TEST_F(ExternalDeployer, UpdateOfALaunchedEngineWhoseStartNobodyHeardIsNoSuccess) {
  EXPECT_FALSE(execute("start-unheard,heard,16,7,await-end"));
  EXPECT_EQ(step().installerState(), 7U);
}

TEST_F(ExternalDeployer, ThatDoesNotAnswerIsNeitherDoneNorFailed) {
  const double usual = ipc::gTimeoutInterval;
  ipc::gTimeoutInterval = 0.1;
  const CapturedLog log;
  std::thread pace([&] {
    waitForLog(log, "NSPortTimeoutException");
    kill(engineProcess(), SIGCONT);
  });
  EXPECT_FALSE(execute("start,stop,15,4,await-end"));
  pace.join();
  ipc::gTimeoutInterval = usual;
  EXPECT_EQ(step().installerState(), QVNInstallerStateInsufficientDiskSpace);
}

TEST_F(ExternalDeployer, HasEndedWhenTheStepEnds) {
  for (const char* script : {"start,0,await-end", "start,4,await-end", "start,kill"}) {
    execute(script);
    EXPECT_EQ(kill(engineProcess(), 0), -1) << script;
  }
}

TEST_F(ExternalDeployer, IsNotReachedByACancellation) {
  run().cancelled = true;
  EXPECT_TRUE(execute("start,15,0,await-end"));
  EXPECT_FALSE(fs::exists(external() + "/cancelled"));
}

TEST_F(ExternalDeployer, WhatIsHeardAfterTheEndConcernsNobody) {
  EXPECT_FALSE(execute("start,4,await-end"));
  const std::size_t seen = run().states.size();
  int heard = 0;
  ipc::NotificationObserver observer;
  observer.add(std::string(kQVNInstallationStatusUpdatedNotification), external(),
               [&](const ipc::Notification&) { ++heard; });
  const CapturedLog log;
  postUpdate();
  while (heard == 0) {
    foundation::RunLoop::current()->runUntil(foundation::RunLoop::Clock::time_point::max());
  }
  foundation::RunLoop::current()->runUntil(foundation::RunLoop::Clock::now());
  EXPECT_EQ(step().installerState(), QVNInstallerStateInsufficientDiskSpace);
  EXPECT_EQ(run().states.size(), seen);
  EXPECT_FALSE(mentions(log, "updateInstallerState"));
}

TEST_F(ExternalDeployer, StopsListeningWhenTheStepIsReleased) {
  const std::string observers(ipc::kObserverFolder);
  EXPECT_TRUE(execute("start,0,await-end"));
  EXPECT_FALSE(fs::is_empty(observers));
  makeStepFor("");
  EXPECT_TRUE(fs::is_empty(observers));
}

}  // namespace
}  // namespace deployer
