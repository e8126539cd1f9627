#include "tests/support/ProgramStart.h"

#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "tests/support/CallFilter.h"

namespace support {
namespace {

/// Nothing that starts tests opens more than this.
constexpr int kHighestDescriptor = 1024;
constexpr int kNotStarted = 127;

void defaultSignals() {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (const int signal : {SIGPIPE, SIGINT, SIGQUIT, SIGTERM, SIGCHLD, SIGHUP}) {
    ::signal(signal, SIG_DFL);
  }
}

bool takeDescriptors(const ProgramStart& start) {
  for (int standard = 0; standard < kStandardDescriptors; ++standard) {
    const int given = start.standard[static_cast<std::size_t>(standard)];
    if (given >= 0 && dup2(given, standard) < 0) {
      return false;
    }
  }
  if (start.options->terminal >= 0) {
    for (int standard = 0; standard < kStandardDescriptors; ++standard) {
      if (dup2(start.options->terminal, standard) < 0) {
        return false;
      }
    }
    if (ioctl(STDIN_FILENO, TIOCSCTTY, 0) != 0) {
      return false;
    }
  }
  for (const int closed : start.options->closedDescriptors) {
    close(closed);
  }
  // What a test framework or shell left open must not reach the program.
  for (int other = kStandardDescriptors; other < kHighestDescriptor; ++other) {
    fcntl(other, F_SETFD, FD_CLOEXEC);
  }
  return true;
}

bool takeLimits(const RunOptions& options) {
  for (const auto& [resource, value] : options.limits) {
    const rlimit limit{value, value};
    if (setrlimit(static_cast<__rlimit_resource_t>(resource), &limit) != 0) {
      return false;
    }
  }
  return true;
}

bool takeUser(const RunOptions& options) {
  const bool taken = setgroups(0, nullptr) == 0 && setgid(options.group) == 0 && setuid(options.user) == 0;
  if (!taken) {
    return false;
  }
  // Where no process namespace ends the program with the test process, this does. Set last: changing the user clears
  // it.
  return prctl(PR_SET_PDEATHSIG, SIGKILL) == 0;
}

[[noreturn]] void fail(const ProgramStart& start, int reason) {
  if (write(start.launchStatus, &reason, sizeof reason) < 0) {
    _exit(kNotStarted + 1);
  }
  _exit(kNotStarted);
}

void waitAtGate(int gate) {
  char nothing = 0;
  while (read(gate, &nothing, 1) < 0 && errno == EINTR) {
  }
}

}  // namespace

std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (const std::string& text : texts) {
    result.push_back(const_cast<char*>(text.c_str()));
  }
  result.push_back(nullptr);
  return result;
}

pid_t forkInto(const RootDirectory& root) {
  const int wanted = root.processNamespace();
  if (wanted < 0) {
    return fork();
  }
  const int own = open("/proc/self/ns/pid", O_RDONLY | O_CLOEXEC);
  if (own < 0 || setns(wanted, CLONE_NEWPID) != 0) {
    throwErrno("entering the process namespace");
  }
  const pid_t child = fork();
  if (child != 0) {
    const int reason = errno;
    if (setns(own, CLONE_NEWPID) != 0) {
      throwErrno("returning to the own process namespace");
    }
    close(own);
    errno = reason;
  }
  return child;
}

void becomeProgram(const ProgramStart& start) {
  waitAtGate(start.gate);
  defaultSignals();
  setsid();
  const int entered = start.root->enter();
  if (entered != 0) {
    fail(start, entered);
  }
  if (chdir(start.options->currentDirectory.c_str()) != 0 || !takeLimits(*start.options) || !takeDescriptors(start) ||
      !takeUser(*start.options)) {
    fail(start, errno);
  }
  umask(start.options->fileCreationMask);
  if (start.options->callFilter != nullptr) {
    const int filtered = start.options->callFilter->install();
    if (filtered != 0) {
      fail(start, filtered);
    }
  }
  execve(start.program, start.arguments.data(), start.environment.data());
  fail(start, errno);
}

}  // namespace support
