#include "tests/support/CallFilter.h"

#include <linux/audit.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <new>

#include "tests/support/RootDirectory.h"

#ifndef SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV
#define SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV (1UL << 5)
#endif

namespace support {
namespace {

#if defined(__x86_64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#else
#error "the architecture's number in <linux/audit.h> is not known here"
#endif

sock_filter statement(std::uint16_t code, std::uint32_t value) { return {code, 0, 0, value}; }

sock_filter jumpIfEqual(std::uint32_t value, std::uint8_t whenEqual, std::uint8_t otherwise) {
  return {BPF_JMP | BPF_JEQ | BPF_K, whenEqual, otherwise, value};
}

std::vector<sock_filter> filterFor(const std::vector<long>& calls) {
  std::vector<sock_filter> program{
      statement(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
      jumpIfEqual(kArchitecture, 1, 0),
      statement(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      statement(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
  };
  for (const long call : calls) {
    program.push_back(jumpIfEqual(static_cast<std::uint32_t>(call), 0, 1));
    program.push_back(statement(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
  }
  program.push_back(statement(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  return program;
}

int installFilter(const sock_fprog& program) {
  constexpr unsigned long kListener = SECCOMP_FILTER_FLAG_NEW_LISTENER;
  // A signal that does not kill must not have a call asked for twice; older kernels do not know how to see to that.
  const long listener =
      syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, kListener | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV, &program);
  return static_cast<int>(
      listener >= 0 || errno != EINVAL ? listener : syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, kListener, &program));
}

bool hasEnded(pid_t child) {
  siginfo_t ended{};
  return waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 || ended.si_pid == child;
}

}  // namespace

/// Where parent and child wait for each other without any call that the filter could have.
struct CallFilter::Meeting {
  static constexpr int kNotYet = -1;
  std::atomic<int> listener{kNotYet};
  std::atomic<int> reason{0};
  std::atomic<bool> taken{false};
};

CallFilter::CallFilter(const std::vector<long>& calls) : program_(filterFor(calls)) {
  void* page = mmap(nullptr, sizeof(Meeting), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) {
    throwErrno("sharing memory with a child");
  }
  meeting_ = new (page) Meeting;
}

CallFilter::~CallFilter() { munmap(meeting_, sizeof(Meeting)); }

int CallFilter::install() const noexcept {
  const sock_fprog program{static_cast<unsigned short>(program_.size()), const_cast<sock_filter*>(program_.data())};
  const int listener = installFilter(program);
  if (listener < 0) {
    meeting_->reason = errno;
    return errno;
  }
  meeting_->listener = listener;
  while (!meeting_->taken) {
    sched_yield();
  }
  return 0;
}

int CallFilter::takeListener(pid_t child) const {
  while (meeting_->listener == Meeting::kNotYet) {
    if (meeting_->reason != 0 || hasEnded(child)) {
      errno = meeting_->reason == 0 ? ECHILD : meeting_->reason.load();
      throwErrno("watching the system calls of a program");
    }
    sched_yield();
  }
  const int process = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
  const int listener = static_cast<int>(syscall(SYS_pidfd_getfd, process, meeting_->listener.load(), 0));
  const int reason = errno;
  if (process >= 0) {
    close(process);
  }
  if (listener < 0) {
    errno = reason;
    throwErrno("taking the listener for system calls");
  }
  meeting_->taken = true;
  return listener;
}

}  // namespace support
