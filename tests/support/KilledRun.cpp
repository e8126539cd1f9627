#include "tests/support/KilledRun.h"

#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <thread>

namespace support {
namespace {

constexpr int kSystemCallStop = SIGTRAP | 0x80;

/// The thread that traces sees only what it started itself, whatever else the test process waits for.
constexpr int kOwnChildrenOnly = __WALL | __WNOTHREAD;

int eventOf(int status) { return status >> 16; }

/// Follows one program and its threads from system call to system call.
class Watch {
 public:
  Watch(const KillMoment& moment, const PrivateRoot& root) : moment_(moment) {
    if (moment.child && stat(root.path(*moment.child).c_str(), &child_) != 0) {
      throwErrno("finding " + *moment.child);
    }
  }

  /// Takes hold of the process, which waits to start the program.
  void seize(pid_t process) {
    process_ = process;
    constexpr long kOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;
    constexpr long kChildOptions = PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK;
    int status = 0;
    if (ptrace(PTRACE_SEIZE, process, nullptr, moment_.child ? kOptions | kChildOptions : kOptions) != 0 ||
        ptrace(PTRACE_INTERRUPT, process, nullptr, nullptr) != 0 ||
        waitpid(process, &status, kOwnChildrenOnly) != process ||
        ptrace(PTRACE_SYSCALL, process, nullptr, nullptr) != 0) {
      throwErrno("watching a process");
    }
  }

  /// Follows until the program has ended; its wait status.
  int follow() {
    int last = 0;
    for (;;) {
      int status = 0;
      const pid_t thread = waitpid(-1, &status, kOwnChildrenOnly);
      if (thread < 0 && errno == EINTR) {
        continue;
      }
      if (thread < 0) {
        return last;
      }
      if (WIFSTOPPED(status)) {
        handleStop(thread, status);
      } else if (thread == process_) {
        last = status;
      }
    }
  }

  [[nodiscard]] bool reached() const { return reached_; }
  [[nodiscard]] unsigned long callsSeen() const { return seen_; }

 private:
  void handleStop(pid_t thread, int status) {
    const int signal = WSTOPSIG(status);
    if (signal == kSystemCallStop) {
      handleSystemCall(thread);
      resume(thread, 0);
    } else if (eventOf(status) == PTRACE_EVENT_EXEC) {
      noteProgram(thread);
      resume(thread, 0);
    } else if (eventOf(status) == PTRACE_EVENT_STOP && signal != SIGTRAP) {
      ptrace(PTRACE_LISTEN, thread, nullptr, nullptr);
    } else {
      resume(thread, eventOf(status) != 0 ? 0 : signal);
    }
  }

  /// A process begins to run a program; here the thread's number is the process's.
  void noteProgram(pid_t process) {
    struct stat program {};
    if (!moment_.child) {
      counted_ = process_;
    } else if (stat(("/proc/" + std::to_string(process) + "/exe").c_str(), &program) == 0 &&
               program.st_dev == child_.st_dev && program.st_ino == child_.st_ino && process != process_) {
      counted_ = process;
    }
  }

  /// Whether the thread belongs to the process that is to be killed.
  [[nodiscard]] bool isCounted(pid_t thread) {
    if (counted_ < 0 || !moment_.child || thread == counted_) {
      return counted_ >= 0;
    }
    return access(("/proc/" + std::to_string(counted_) + "/task/" + std::to_string(thread)).c_str(), F_OK) == 0;
  }

  void resume(pid_t thread, int signal) {
    // A thread that a SIGKILL took meanwhile cannot be resumed, and need not be.
    ptrace(PTRACE_SYSCALL, thread, nullptr, static_cast<long>(signal));
  }

  void handleSystemCall(pid_t thread) {
    __ptrace_syscall_info call{};
    if (!isCounted(thread) || ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof call, &call) <= 0) {
      return;
    }
    if (call.op == PTRACE_SYSCALL_INFO_ENTRY) {
      enterCall(thread, static_cast<long>(call.entry.nr));
    } else if (call.op == PTRACE_SYSCALL_INFO_EXIT && thread == awaited_) {
      killNow();
    }
  }

  void enterCall(pid_t thread, long number) {
    if (std::find(moment_.calls.begin(), moment_.calls.end(), number) == moment_.calls.end()) {
      return;
    }
    ++seen_;
    if (seen_ != moment_.number) {
      return;
    }
    if (moment_.when == KillMoment::When::Before) {
      killNow();
    } else {
      awaited_ = thread;
    }
  }

  void killNow() {
    reached_ = true;
    awaited_ = -1;
    ::kill(counted_, SIGKILL);
  }

  const KillMoment& moment_;
  struct stat child_ {};
  pid_t process_ = -1;
  pid_t counted_ = -1;
  pid_t awaited_ = -1;
  bool reached_ = false;
  unsigned long seen_ = 0;
};

KilledOutcome watchedRun(const PrivateRoot& root, const std::vector<std::string>& arguments, const KillMoment& moment,
                         const RunOptions& options) {
  Watch watch(moment, root);
  RunningProgram program(root.directory(), arguments, options, [&](pid_t process) { watch.seize(process); });
  program.noteEnd(watch.follow());
  program.requireLaunch();
  return {watch.reached(), watch.callsSeen(), program.wait()};
}

/// A leak check looks at its process as a debugger does and fails where one is at work already.
RunOptions withoutLeakCheck(RunOptions options) {
  for (std::string& variable : options.environment) {
    if (variable.starts_with("ASAN_OPTIONS=")) {
      variable += ":detect_leaks=0";
      return options;
    }
  }
  options.environment.emplace_back("ASAN_OPTIONS=detect_leaks=0");
  return options;
}

}  // namespace

std::vector<long> KilledRun::nameAndAttributeChanges() {
  return {
#ifdef SYS_rename
      SYS_rename,    SYS_link,   SYS_symlink,   SYS_mkdir,   SYS_rmdir,     SYS_unlink,
      SYS_chmod,     SYS_chown,  SYS_lchown,    SYS_mknod,
#endif
#ifdef SYS_renameat
      SYS_renameat,
#endif
      SYS_renameat2, SYS_linkat, SYS_symlinkat, SYS_mkdirat, SYS_unlinkat,  SYS_fchmod,
      SYS_fchmodat,  SYS_fchown, SYS_fchownat,  SYS_mknodat, SYS_utimensat,
  };
}

std::vector<long> KilledRun::fileChanges() {
  std::vector<long> calls = nameAndAttributeChanges();
#ifdef SYS_open
  calls.insert(calls.end(), {SYS_open, SYS_creat});
#endif
  calls.insert(calls.end(), {SYS_openat, SYS_write, SYS_writev, SYS_pwrite64, SYS_ftruncate, SYS_fallocate,
                             SYS_copy_file_range, SYS_sendfile});
  return calls;
}

std::optional<std::string> KilledRun::whyImpossible() {
  const pid_t child = fork();
  if (child == 0) {
    for (;;) {
      pause();
    }
  }
  errno = 0;
  const bool seized = child > 0 && ptrace(PTRACE_SEIZE, child, nullptr, PTRACE_O_TRACESYSGOOD) == 0;
  const int reason = errno;
  if (child > 0) {
    ::kill(child, SIGKILL);
    waitpid(child, nullptr, __WALL);
  }
  return seized ? std::nullopt : std::optional(std::string("ptrace is not allowed here: ") + std::strerror(reason));
}

KilledOutcome KilledRun::run(PrivateRoot& root, const std::vector<std::string>& arguments, const KillMoment& moment,
                             const RunOptions& options) {
  const RunOptions watched = withoutLeakCheck(options);
  KilledOutcome outcome;
  std::exception_ptr failure;
  std::thread tracer([&] {
    try {
      outcome = watchedRun(root, arguments, moment, watched);
    } catch (...) {
      failure = std::current_exception();
    }
  });
  tracer.join();
  if (failure) {
    std::rethrow_exception(failure);
  }
  return outcome;
}

}  // namespace support
