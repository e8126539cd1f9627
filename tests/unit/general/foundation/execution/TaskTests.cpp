#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "general/foundation/execution/ProcessPrimitives.h"
#include "general/foundation/execution/Task.h"
#include "general/foundation/execution/TaskExitSource.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

using foundation::RunLoop;
using foundation::Task;
using foundation::TaskExitSource;
using foundation::TaskLaunchException;
using tests::TemporaryDirectory;

Task shell(const std::string& script) { return {"/bin/sh", {"-c", script}}; }

int statusOf(const std::string& script) {
  Task task = shell(script);
  task.launch();
  task.waitUntilExit();
  return task.terminationStatus();
}

/// The text of the exception; empty when the launch succeeds.
std::string launchFailure(Task task) {
  try {
    task.launch();
  } catch (const TaskLaunchException& failure) {
    return failure.what();
  }
  task.waitUntilExit();
  return {};
}

std::string contentOf(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path).rdbuf();
  return content.str();
}

/// Sets a signal's action and puts the old one back.
class SignalAction {
 public:
  SignalAction(int number, void (*action)(int)) : number_(number), previous_(std::signal(number, action)) {}
  ~SignalAction() { std::signal(number_, previous_); }
  SignalAction(const SignalAction&) = delete;
  SignalAction& operator=(const SignalAction&) = delete;

 private:
  int number_;
  void (*previous_)(int);
};

/// A child that stays until it is let go.
class Gate {
 public:
  Gate() { EXPECT_EQ(mkfifo(path().c_str(), 0600), 0); }
  [[nodiscard]] std::string path() const { return directory_.path("gate"); }
  [[nodiscard]] std::string waitHere() const { return "read line < '" + path() + "'"; }
  void open() const { std::ofstream(path()) << "go\n"; }

 private:
  TemporaryDirectory directory_;
};

TEST(Task, ReportsTheExitStatus) {
  EXPECT_EQ(statusOf("exit 0"), 0);
  EXPECT_EQ(statusOf("exit 7"), 7);
}

TEST(Task, ReportsTheSignalThatEndedTheChild) {
  Task task = shell("kill -KILL $$");
  task.launch();
  task.waitUntilExit();
  EXPECT_TRUE(task.wasSignalled());
  EXPECT_EQ(task.terminationStatus(), SIGKILL);
}

TEST(Task, DescribesHowItsChildEnded) {
  for (const auto& [script, description] :
       {std::pair("exit 3", "exit status 3"), std::pair("kill -KILL $$", "signal 9")}) {
    Task task = shell(script);
    task.launch();
    task.waitUntilExit();
    EXPECT_EQ(task.endDescription(), description);
  }
}

TEST(Task, PassesArgumentsAsTheyAre) {
  const TemporaryDirectory directory;
  Task task("/bin/sh", {"-c", "printf '%s|' \"$@\" > \"$0\"", directory.path("out"), "a b", "", "*", "$HOME", "ü\n"});
  task.launch();
  task.waitUntilExit();
  EXPECT_EQ(contentOf(directory.path("out")), "a b||*|$HOME|ü\n|");
}

TEST(Task, GivesTheChildItsOwnEnvironmentAndOneVariableMore) {
  const TemporaryDirectory directory;
  Task task("/bin/sh", {"-c", "printf '%s|%s' \"$CORVANE_ONE_MORE\" \"$PATH\" > \"$0\"", directory.path("out")});
  task.setVariable("CORVANE_ONE_MORE", "a b");
  task.launch();
  task.waitUntilExit();
  EXPECT_EQ(contentOf(directory.path("out")), std::string("a b|") + std::getenv("PATH"));
  EXPECT_EQ(std::getenv("CORVANE_ONE_MORE"), nullptr);
}

TEST(Task, RunsInItsWorkingDirectory) {
  const TemporaryDirectory directory;
  Task task = shell("pwd -P > here");
  task.setCurrentDirectory(directory.path());
  task.launch();
  task.waitUntilExit();
  EXPECT_EQ(contentOf(directory.path("here")), std::filesystem::canonical(directory.path()).string() + "\n");
}

TEST(Task, KeepsTheFirstBytesOfStandardErrorAndDropsTheRest) {
  Task task = shell("head -c 5000 /dev/zero | tr '\\0' x >&2; echo out");
  task.captureOutput(1000);
  task.launch();
  task.waitUntilExit();
  EXPECT_EQ(task.standardErrorOutput(), std::string(1000, 'x'));
}

TEST(Task, KeepsAllOfAShortStandardError) {
  Task task = shell("echo failed >&2; exit 3");
  task.captureOutput(1000);
  task.launch();
  task.waitUntilExit();
  EXPECT_EQ(task.standardErrorOutput(), "failed\n");
  EXPECT_EQ(task.terminationStatus(), 3);
}

TEST(Task, KeepsNothingWhenNothingIsWanted) {
  Task task = shell("echo failed >&2");
  task.captureOutput(0);
  task.launch();
  task.waitUntilExit();
  EXPECT_EQ(task.standardErrorOutput(), "");
}

TEST(Task, AChildThatWritesMegabytesToBothPipesDoesNotHang) {
  Task task = shell("head -c 10485760 /dev/zero & head -c 10485760 /dev/zero >&2; wait; echo end >&2");
  task.captureOutput(10);
  task.launch();
  task.waitUntilExit();
  EXPECT_EQ(task.terminationStatus(), 0);
  EXPECT_EQ(task.standardErrorOutput(), std::string(10, '\0'));
}

TEST(Task, DrainsTheOutputOfATaskThatIsOnlyAskedWhetherItRuns) {
  Task task = shell("head -c 1048576 /dev/zero; head -c 1048576 /dev/zero >&2");
  task.captureOutput(10);
  task.launch();
  while (task.isRunning()) {
    std::this_thread::yield();
  }
  EXPECT_EQ(task.terminationStatus(), 0);
  EXPECT_EQ(task.standardErrorOutput(), std::string(10, '\0'));
}

TEST(Task, AGrandchildThatKeepsThePipesOpenDoesNotDelayTheReturn) {
  Task task = shell("sleep 100000 & echo $! >&2; exit 4");
  task.captureOutput(1000);
  task.launch();
  task.waitUntilExit();
  EXPECT_EQ(task.terminationStatus(), 4);
  const pid_t grandchild = std::stoi(task.standardErrorOutput());
  EXPECT_EQ(kill(grandchild, SIGKILL), 0) << "it should have outlived the wait";
}

TEST(Task, AGrandchildThatNeverStopsWritingDoesNotDelayTheReturn) {
  Task task = shell("yes >&2 & exit 4");
  task.captureOutput(2);
  task.launch();
  task.waitUntilExit();
  EXPECT_EQ(task.terminationStatus(), 4);
}

TEST(Task, LeavesNoZombie) {
  Task task = shell("exit 0");
  task.launch();
  task.waitUntilExit();
  EXPECT_EQ(kill(task.processIdentifier(), 0), -1);
  EXPECT_EQ(errno, ESRCH);
}

TEST(Task, ReapsAnExitedChildOnDestruction) {
  pid_t child = 0;
  {
    Task task = shell("exit 0");
    task.launch();
    child = task.processIdentifier();
    siginfo_t facts{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &facts, WEXITED | WNOWAIT), 0);
  }
  EXPECT_EQ(kill(child, 0), -1);
  EXPECT_EQ(errno, ESRCH);
}

TEST(Task, LeavesARunningChildToItselfOnDestruction) {
  const Gate gate;
  pid_t child = 0;
  {
    Task task = shell(gate.waitHere());
    task.launch();
    child = task.processIdentifier();
  }
  EXPECT_EQ(kill(child, 0), 0);
  gate.open();
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(Task, IsRunningFromItsLaunchToItsExit) {
  const Gate gate;
  Task task = shell(gate.waitHere());
  EXPECT_FALSE(task.isRunning());
  task.launch();
  EXPECT_TRUE(task.isRunning());
  EXPECT_GT(task.processIdentifier(), 0);
  gate.open();
  task.waitUntilExit();
  EXPECT_FALSE(task.isRunning());
}

TEST(Task, WaitsForNothingBeforeItsLaunchAndAfterItsExit) {
  Task task = shell("exit 2");
  task.waitUntilExit();
  EXPECT_EQ(task.processIdentifier(), 0);
  task.launch();
  task.waitUntilExit();
  task.waitUntilExit();
  EXPECT_EQ(task.terminationStatus(), 2);
}

TEST(Task, CanBeMovedWhileItRuns) {
  const Gate gate;
  Task first = shell(gate.waitHere() + "; exit 6");
  first.launch();
  Task second(std::move(first));
  gate.open();
  second.waitUntilExit();
  EXPECT_EQ(second.terminationStatus(), 6);
}

// Far enough away that a test which reaches it has failed.
constexpr std::chrono::minutes kLongTime{2};

TEST(Task, AWaitWithADeadlineEndsWithTheChild) {
  Task task = shell("exit 3");
  task.launch();
  EXPECT_TRUE(task.waitUntilExit(RunLoop::Clock::now() + kLongTime));
  EXPECT_EQ(task.terminationStatus(), 3);
  EXPECT_TRUE(task.waitUntilExit(RunLoop::Clock::now()));
}

TEST(Task, AWaitWithADeadlineEndsWithoutTheChild) {
  const Gate gate;
  Task task = shell(gate.waitHere() + "; exit 4");
  task.launch();
  EXPECT_FALSE(task.waitUntilExit(RunLoop::Clock::now() + std::chrono::milliseconds(1)));
  EXPECT_FALSE(task.waitUntilExit(RunLoop::Clock::time_point::min()));
  EXPECT_TRUE(task.isRunning());
  gate.open();
  EXPECT_TRUE(task.waitUntilExit(RunLoop::Clock::now() + kLongTime));
  EXPECT_EQ(task.terminationStatus(), 4);
}

TEST(Task, TheExitOfAChildEndsATurnOfTheRunLoop) {
  const Gate gate;
  Task task = shell(gate.waitHere());
  task.launch();
  RunLoop loop;
  int exits = 0;
  const TaskExitSource source(loop, task, [&] { ++exits; });
  EXPECT_TRUE(loop.runUntil(RunLoop::Clock::now()));
  EXPECT_EQ(exits, 0);
  gate.open();
  EXPECT_TRUE(loop.runUntil(RunLoop::Clock::now() + kLongTime));
  EXPECT_EQ(exits, 1);
  EXPECT_FALSE(task.isRunning());
}

TEST(Task, AnExitSourceLeavesTheLoopAtItsEndAndOutlivesTheExit) {
  Task task = shell("exit 0");
  RunLoop loop;
  EXPECT_EQ(task.exitDescriptor(), -1);
  task.launch();
  {
    const TaskExitSource source(loop, task);
    task.waitUntilExit();
    EXPECT_TRUE(loop.runUntil(RunLoop::Clock::now() + kLongTime)) << "its descriptor is still the task's";
  }
  EXPECT_FALSE(loop.runUntil(RunLoop::Clock::now() + kLongTime));
}

/// Another process that launches a task and stays until it is ended from outside.
class LaunchingProcess {
 public:
  LaunchingProcess(const std::string& script, bool endsWithParent) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    process_ = fork();
    if (process_ == 0) {
      dup2(ends[1], STDOUT_FILENO);
      close(ends[0]);
      close(ends[1]);
      Task task = shell(script);
      task.setEndsWithParent(endsWithParent);
      task.launch();
      // So that the task's child is the only one that holds the pipe.
      close(STDOUT_FILENO);
      while (true) {
        pause();
      }
    }
    close(ends[1]);
    output_ = ends[0];
  }
  ~LaunchingProcess() {
    end();
    close(output_);
  }
  LaunchingProcess(const LaunchingProcess&) = delete;
  LaunchingProcess& operator=(const LaunchingProcess&) = delete;

  void end() {
    if (process_ > 0) {
      kill(process_, SIGKILL);
      waitpid(process_, nullptr, 0);
      process_ = 0;
    }
  }
  /// What the child writes next; empty once it has ended.
  [[nodiscard]] std::string nextOutput() const {
    pollfd watched{output_, POLLIN, 0};
    if (poll(&watched, 1, static_cast<int>(std::chrono::milliseconds(kLongTime).count())) <= 0) {
      return "nothing came";
    }
    char text[100];
    const ssize_t count = read(output_, text, sizeof text);
    return {text, static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
  }

 private:
  pid_t process_ = -1;
  int output_ = -1;
};

TEST(Task, AChildThatEndsWithItsParentIsKilledWithIt) {
  const Gate gate;
  LaunchingProcess parent("trap '' TERM HUP INT; echo ready; " + gate.waitHere() + "; echo gone on", true);
  ASSERT_EQ(parent.nextOutput(), "ready\n");
  parent.end();
  EXPECT_EQ(parent.nextOutput(), "");
}

TEST(Task, AChildOutlivesItsParentWhereNothingElseWasAskedFor) {
  const Gate gate;
  LaunchingProcess parent("echo ready; " + gate.waitHere() + "; echo gone on", false);
  ASSERT_EQ(parent.nextOutput(), "ready\n");
  parent.end();
  gate.open();
  EXPECT_EQ(parent.nextOutput(), "gone on\n");
}

TEST(Task, AChildWhoseParentEndedBeforeItCouldAskForItsSignalDoesNotStart) {
  const pid_t child = fork();
  if (child == 0) {
    // As after the parent's end: the parent is another process than the one that forked.
    _exit(foundation::primitives::endWithParent(getpid()) ? 1 : 0);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(Task, AMissingProgramIsALaunchFailureThatNamesIt) {
  EXPECT_EQ(launchFailure({"/no/such/program", {}}), "cannot launch /no/such/program: No such file or directory");
  EXPECT_NE(launchFailure({"", {}}), "");
}

TEST(Task, AProgramWithoutExecutePermissionIsALaunchFailure) {
  const TemporaryDirectory directory;
  const std::string file = directory.write("plain", "#!/bin/sh\n");
  EXPECT_EQ(launchFailure({file, {}}), "cannot launch " + file + ": Permission denied");
  EXPECT_EQ(launchFailure({directory.path(), {}}), "cannot launch " + directory.path() + ": Permission denied");
}

TEST(Task, AFileThatIsNoProgramIsALaunchFailure) {
  const TemporaryDirectory directory;
  const std::string file = directory.write("garbage", "neither script nor program");
  ASSERT_EQ(chmod(file.c_str(), 0755), 0);
  EXPECT_EQ(launchFailure({file, {}}), "cannot launch " + file + ": Exec format error");
}

TEST(Task, AMissingWorkingDirectoryIsALaunchFailureThatNamesIt) {
  Task task = shell("exit 0");
  task.setCurrentDirectory("/no/such/folder");
  EXPECT_EQ(launchFailure(std::move(task)),
            "cannot launch /bin/sh: working directory /no/such/folder: No such file or directory");
}

TEST(Task, TextsWithANulAreLaunchFailures) {
  const std::string withNul("/bin/sh\0/x", 10);
  EXPECT_EQ(launchFailure({withNul, {}}), "cannot launch /bin/sh: the path holds a NUL");
  EXPECT_EQ(launchFailure({"/bin/sh", {"-c", withNul}}), "cannot launch /bin/sh: an argument holds a NUL");
  Task task = shell("exit 0");
  task.setCurrentDirectory(std::string("/tmp\0x", 6));
  EXPECT_EQ(launchFailure(std::move(task)), "cannot launch /bin/sh: the working directory's path holds a NUL");
}

TEST(Task, ArgumentsBeyondTheSystemsLimitAreALaunchFailure) {
  EXPECT_EQ(launchFailure({"/bin/sh", {"-c", std::string(64 << 20, 'x')}}),
            "cannot launch /bin/sh: Argument list too long");
}

TEST(Task, TheLackOfDescriptorsIsALaunchFailure) {
  rlimit previous{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &previous), 0);
  rlimit none = previous;
  none.rlim_cur = 3;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  Task task = shell("exit 0");
  std::exception_ptr failure;
  try {
    task.launch();
  } catch (...) {
    failure = std::current_exception();
  }
  // Before the exception is looked at: sanitizers take descriptors of their own to check an object's type.
  setrlimit(RLIMIT_NOFILE, &previous);
  ASSERT_TRUE(failure);
  try {
    std::rethrow_exception(failure);
  } catch (const TaskLaunchException& exception) {
    EXPECT_STREQ(exception.what(), "cannot launch /bin/sh: Too many open files");
  }
}

TEST(Task, ASecondLaunchIsALaunchFailure) {
  Task task = shell("exit 0");
  task.launch();
  EXPECT_THROW(task.launch(), TaskLaunchException);
  task.waitUntilExit();
}

TEST(Task, AFailedLaunchLeavesNoChildAndCanBeTriedAgain) {
  const TemporaryDirectory directory;
  Task task(directory.path("program"), {});
  EXPECT_THROW(task.launch(), TaskLaunchException);
  EXPECT_FALSE(task.isRunning());
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
  ASSERT_EQ(chmod(directory.write("program", "#!/bin/sh\nexit 5\n").c_str(), 0755), 0);
  task.launch();
  task.waitUntilExit();
  EXPECT_EQ(task.terminationStatus(), 5);
}

TEST(Task, GivesTheChildDefaultSignalsAlthoughTheParentIgnoresThem) {
  const SignalAction ignored(SIGPIPE, SIG_IGN);
  Task task = shell("kill -PIPE $$; exit 0");
  task.launch();
  task.waitUntilExit();
  EXPECT_TRUE(task.wasSignalled());
  EXPECT_EQ(task.terminationStatus(), SIGPIPE);
}

TEST(Task, GivesTheChildAnEmptySignalMask) {
  sigset_t blocked;
  sigset_t previous;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, &previous);
  Task task = shell("kill -TERM $$; exit 0");
  task.launch();
  sigset_t during;
  pthread_sigmask(SIG_SETMASK, &previous, &during);
  task.waitUntilExit();
  EXPECT_TRUE(task.wasSignalled());
  EXPECT_EQ(task.terminationStatus(), SIGTERM);
  EXPECT_EQ(sigismember(&during, SIGTERM), 1);
  EXPECT_EQ(sigismember(&during, SIGINT), 0);
}

TEST(Task, GivesTheChildNoDescriptorsButTheStandardThree) {
  const int leaking = fcntl(STDERR_FILENO, F_DUPFD, 20);
  ASSERT_GE(leaking, 20);
  EXPECT_EQ(statusOf("for d in /proc/self/fd/*; do [ ${d##*/} -lt 10 ] || [ ! -e $d ] || exit 1; done; exit 0"), 0);
  EXPECT_EQ(fcntl(leaking, F_GETFD), 0) << "the parent's own descriptor is left as it was";
  close(leaking);
}

TEST(Task, AnUnknownExitIsNoSuccess) {
  // Who starts the engine may have told the system not to keep the status of children.
  const SignalAction ignored(SIGCHLD, SIG_IGN);
  EXPECT_NE(statusOf("exit 0"), 0);
}

TEST(Task, CapturesOutputAlsoWhenTheParentsStandardDescriptorsAreClosed) {
  const pid_t child = fork();
  if (child == 0) {
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    close(STDERR_FILENO);
    Task task = shell("echo out; echo error >&2");
    task.captureOutput(100);
    task.launch();
    task.waitUntilExit();
    _exit(task.standardErrorOutput() == "error\n" ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(Task, WritesEverythingToAnOpenFileAndReadsNothing) {
  std::FILE* const file = std::tmpfile();
  ASSERT_NE(file, nullptr);
  Task task = shell("read line; echo \"$? out\"; echo error >&2");
  task.writeOutputTo(foundation::Descriptor(dup(fileno(file))));
  task.launch();
  task.waitUntilExit();
  std::rewind(file);
  std::array<char, 64> text{};
  const std::size_t length = std::fread(text.data(), 1, text.size(), file);
  std::fclose(file);
  EXPECT_EQ(std::string(text.data(), length), "1 out\nerror\n");
}

TEST(Task, StaysInTheSessionOfItsParentUnlessItGetsItsOwn) {
  for (const bool own : {false, true}) {
    Task task = shell("kill -STOP $$");
    task.setOwnSession(own);
    task.launch();
    EXPECT_EQ(getsid(task.processIdentifier()), own ? task.processIdentifier() : getsid(0));
    kill(task.processIdentifier(), SIGKILL);
    task.waitUntilExit();
  }
}

TEST(Task, TasksOfManyThreadsDoNotDisturbEachOther) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      for (int round = 0; round < 5; ++round) {
        Task task = shell("echo " + std::to_string(i) + " >&2; exit " + std::to_string(i));
        task.captureOutput(100);
        task.launch();
        task.waitUntilExit();
        EXPECT_EQ(task.terminationStatus(), i);
        EXPECT_EQ(task.standardErrorOutput(), std::to_string(i) + "\n");
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
