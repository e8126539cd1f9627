#pragma once

#include <linux/filter.h>
#include <sys/types.h>

#include <vector>

namespace support {

/// A seccomp(2) filter that hands chosen system calls of a program, of all that it starts and of all their threads, to
/// whoever started it, before they have any effect. Belongs to one start of one program.
class CallFilter {
 public:
  /// @param calls numbers as in <sys/syscall.h>; never sched_yield, which the start itself makes.
  explicit CallFilter(const std::vector<long>& calls);
  ~CallFilter();
  CallFilter(const CallFilter&) = delete;
  CallFilter& operator=(const CallFilter&) = delete;

  /// In the forked child, as the last thing before it runs the program: 0 or an errno. Returns once the parent has
  /// taken the listener. Async-signal-safe.
  [[nodiscard]] int install() const noexcept;
  /// In the parent, once the child may go on: the descriptor on which the calls are asked for (SECCOMP_IOCTL_NOTIF_…),
  /// the caller's to close. Throws PrivateRootError when the child cannot install the filter.
  [[nodiscard]] int takeListener(pid_t child) const;

 private:
  struct Meeting;

  std::vector<sock_filter> program_;
  Meeting* meeting_;  // in memory that parent and child share
};

}  // namespace support
