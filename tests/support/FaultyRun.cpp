#include "tests/support/FaultyRun.h"

#include <fcntl.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <iterator>
#include <mutex>
#include <set>
#include <thread>

#include "tests/support/AllocationCount.h"
#include "tests/support/CallFilter.h"
#include "tests/support/CalledProcess.h"

namespace support {
namespace {

/// How long processes of a run may outlive it.
constexpr std::chrono::seconds kAfterTheEnd{5};

std::vector<long> withExecve(std::vector<long> calls) {
  if (calls.empty()) {
    calls.push_back(SYS_openat);  // who asks belongs to the run
  }
  // A process that runs another program begins anew: its loader is at another place.
  if (std::ranges::find(calls, SYS_execve) == calls.end()) {
    calls.push_back(SYS_execve);
  }
  return calls;
}

}  // namespace

std::string_view nameOfRole(EngineRole role) {
  constexpr std::array<std::string_view, kEngineRoles> kNames = {"engine", "receipt", "nested"};
  return kNames[static_cast<std::size_t>(role)];
}

/// Answers the calls of one run, on a thread of its own, until nobody is left who could make one.
class FaultyRun::Supervisor {
 public:
  Supervisor(const Fault& fault, std::string engine, int listener)
      : fault_(fault), engine_(std::move(engine)), listener_(listener), stop_(eventfd(0, EFD_CLOEXEC)) {
    thread_ = std::thread([this] { answerAll(); });
  }
  ~Supervisor() {
    eventfd_write(stop_, 1);
    thread_.join();
    close(listener_);
    close(stop_);
  }
  Supervisor(const Supervisor&) = delete;
  Supervisor& operator=(const Supervisor&) = delete;

  /// Waits until nobody is left; who is left at the limit is killed.
  void awaitEnd(FaultOutcome& outcome) {
    std::unique_lock lock(mutex_);
    const auto everybodyIsGone = [this] { return gone_; };
    outcome.leftNobody = changed_.wait_for(lock, kAfterTheEnd, everybodyIsGone);
    if (!outcome.leftNobody) {
      for (const pid_t process : processes_) {
        ::kill(process, SIGKILL);
      }
      changed_.wait_for(lock, kAfterTheEnd, everybodyIsGone);
    }
    outcome.reached = reached_;
    outcome.call = call_;
    outcome.callsSeen = seen_;
  }

 private:
  void answerAll() {
    for (;;) {
      std::array<pollfd, 2> ready{pollfd{listener_, POLLIN, 0}, pollfd{stop_, POLLIN, 0}};
      if (poll(ready.data(), ready.size(), -1) < 0) {
        continue;
      }
      if ((ready[0].revents & POLLIN) != 0) {
        answerOne();
      } else if (ready[0].revents != 0 || ready[1].revents != 0) {
        break;
      }
    }
    const std::lock_guard lock(mutex_);
    gone_ = true;
    changed_.notify_all();
  }

  void answerOne() {
    seccomp_notif asked{};
    if (ioctl(listener_, SECCOMP_IOCTL_NOTIF_RECV, &asked) != 0) {
      return;  // who asked is gone
    }
    seccomp_notif_resp answer{};
    answer.id = asked.id;
    if (fails(asked)) {
      answer.error = -fault_.error;
    } else {
      answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    }
    static_cast<void>(ioctl(listener_, SECCOMP_IOCTL_NOTIF_SEND, &answer));
  }

  bool fails(const seccomp_notif& asked) {
    const CalledProcess caller(asked);
    if (!caller.isEngine()) {
      return false;
    }
    const std::lock_guard lock(mutex_);
    processes_.insert(caller.number());
    if (isLoading(caller, asked)) {
      return false;
    }
    if (asked.data.nr == SYS_execve) {
      started_.erase(caller.number());
    }
    if (std::ranges::find(fault_.calls, asked.data.nr) == fault_.calls.end()) {
      return false;
    }
    const EngineRole role = caller.roleIn(engine_);
    ++seen_[asked.data.nr][static_cast<std::size_t>(role)];
    if (fault_.isAllocation || reached_ || role != fault_.role || ++counted_ != fault_.number) {
      return false;
    }
    reached_ = true;
    call_ = caller.describeCall();
    return true;
  }

  /// Whether the loader makes the call, before the program has begun.
  bool isLoading(const CalledProcess& caller, const seccomp_notif& asked) {
    if (started_.contains(caller.number())) {
      return false;
    }
    if (caller.isInLoader(asked.data.instruction_pointer)) {
      return true;
    }
    started_.insert(caller.number());
    return false;
  }

  const Fault fault_;
  const std::string engine_;
  const int listener_;
  const int stop_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool gone_ = false;
  bool reached_ = false;
  unsigned long counted_ = 0;
  std::string call_;
  std::map<long, std::array<unsigned long, kEngineRoles>> seen_;
  std::set<pid_t> processes_;  // that ever ran the engine
  std::set<pid_t> started_;    // beyond their loader
  std::thread thread_;
};

std::optional<std::string> FaultyRun::whyImpossible() {
  try {
    const CallFilter filter({SYS_getppid});
    const pid_t child = fork();
    if (child == 0) {
      _exit(filter.install());
    }
    std::optional<std::string> reason;
    try {
      close(filter.takeListener(child));
    } catch (const PrivateRootError& error) {
      reason = error.what();
    }
    ::kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return reason;
  } catch (const PrivateRootError& error) {
    return error.what();
  }
}

FaultyRun::FaultyRun(PrivateRoot& root, const std::vector<std::string>& arguments, const Fault& fault,
                     const RunOptions& options) {
  const CallFilter filter(withExecve(fault.calls));
  RunOptions watched = options;
  watched.callFilter = &filter;
  if (fault.isAllocation) {
    allocations_ = std::make_unique<AllocationCount>(root, fault, arguments.front());
    std::ranges::copy(AllocationCount::environment(), std::back_inserter(watched.environment));
  }
  program_ = std::make_unique<RunningProgram>(root.directory(), arguments, watched);
  supervisor_ = std::make_unique<Supervisor>(fault, arguments.front(), filter.takeListener(program_->hostProcess()));
  program_->requireLaunch();
}

FaultyRun::~FaultyRun() {
  // The program's calls are answered until it is gone.
  program_.reset();
}

RunningProgram& FaultyRun::program() { return *program_; }

FaultOutcome FaultyRun::finish() {
  FaultOutcome result;
  result.outcome = program_->wait();
  supervisor_->awaitEnd(result);
  if (allocations_) {
    allocations_->tell(result);
  }
  return result;
}

}  // namespace support
