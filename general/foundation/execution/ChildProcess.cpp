#include "general/foundation/execution/ChildProcess.h"

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "general/foundation/execution/Pipe.h"
#include "general/foundation/execution/ProcessPrimitives.h"

#ifndef NSIG
#define NSIG 65
#endif

extern "C" char** environ;

namespace foundation {

namespace {

/// What a child that could not start tells its parent; small enough for one write to a pipe to be whole.
struct FailureReport {
  ChildStart::Failure failure;
  int errnoValue;
};

constexpr int kFirstOrdinaryDescriptor = 3;
constexpr int kExitOfFailedStart = 127;

/// No signal handler of the engine may run in the child before its signals are back at their defaults.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t previous_;
};

void restoreDefaultSignals() noexcept {
  struct sigaction defaults = {};
  defaults.sa_handler = SIG_DFL;
  for (int signal = 1; signal < NSIG; ++signal) {
    sigaction(signal, &defaults, nullptr);
  }
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

[[noreturn]] void giveUp(int reportEnd, ChildStart::Failure failure) noexcept {
  const FailureReport report{failure, errno};
  [[maybe_unused]] const ssize_t written = write(reportEnd, &report, sizeof report);
  _exit(kExitOfFailedStart);
}

/// Gives a descriptor a standard number, where one was chosen. Linux answers EBUSY while another thread opens that
/// number.
bool becomes(int chosen, int standard) noexcept {
  int result = chosen;
  while (chosen >= 0 && (result = dup2(chosen, standard)) < 0 && (errno == EINTR || errno == EBUSY)) {
  }
  return chosen < 0 || result >= 0;
}

/// Runs in the child: async-signal-safe calls only.
[[noreturn]] void becomeProgram(const ChildPlan& plan, char* const* argumentVector, char* const* environment,
                                pid_t parent, int reportEnd) noexcept {
  if (plan.endsWithParent && !primitives::endWithParent(parent)) {
    giveUp(reportEnd, ChildStart::Failure::Resources);
  }
  if (plan.ownSession && setsid() < 0) {
    giveUp(reportEnd, ChildStart::Failure::Resources);
  }
  restoreDefaultSignals();
  primitives::closeDescriptorsOnExec(kFirstOrdinaryDescriptor);
  if (!becomes(plan.standardInput, STDIN_FILENO) || !becomes(plan.standardOutput, STDOUT_FILENO) ||
      !becomes(plan.standardError, STDERR_FILENO)) {
    giveUp(reportEnd, ChildStart::Failure::Resources);
  }
  if (plan.workingDirectory != nullptr && chdir(plan.workingDirectory) != 0) {
    giveUp(reportEnd, ChildStart::Failure::WorkingDirectory);
  }
  execve(plan.program.c_str(), argumentVector, environment);
  giveUp(reportEnd, ChildStart::Failure::Program);
}

std::vector<char*> argumentVector(const ChildPlan& plan) {
  std::vector<char*> vector;
  vector.reserve(plan.arguments.size() + 2);
  vector.push_back(const_cast<char*>(plan.program.c_str()));
  for (const std::string& argument : plan.arguments) {
    vector.push_back(const_cast<char*>(argument.c_str()));
  }
  vector.push_back(nullptr);
  return vector;
}

std::vector<char*> environmentVector(const ChildPlan& plan) {
  std::vector<char*> vector;
  for (const std::string& variable : plan.variables) {
    vector.push_back(const_cast<char*>(variable.c_str()));
  }
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
    vector.push_back(*variable);
  }
  vector.push_back(nullptr);
  return vector;
}

/// Nothing when the end was closed by a successful exec.
ssize_t readReport(const Descriptor& end, FailureReport& report) {
  ssize_t count = 0;
  do {
    count = read(end.number(), &report, sizeof report);
  } while (count < 0 && errno == EINTR);
  return count;
}

void reap(pid_t child) {
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace

ChildStart startChild(const ChildPlan& plan) {
  auto report = makePipe();
  if (!report) {
    return {ChildStart::Failure::Resources, errno, 0};
  }
  const std::vector<char*> vector = argumentVector(plan);
  const std::vector<char*> environment = environmentVector(plan);
  const pid_t parent = getpid();
  pid_t child = -1;
  int forkError = 0;
  {
    const SignalsBlocked blocked;
    child = fork();
    forkError = errno;
    if (child == 0) {
      becomeProgram(plan, vector.data(), environment.data(), parent, report->writeEnd.number());
    }
  }
  if (child < 0) {
    return {ChildStart::Failure::Resources, forkError, 0};
  }
  report->writeEnd.reset();
  FailureReport failure{};
  if (readReport(report->readEnd, failure) == static_cast<ssize_t>(sizeof failure)) {
    reap(child);
    return {failure.failure, failure.errnoValue, 0};
  }
  return {ChildStart::Failure::None, 0, child};
}

}  // namespace foundation
