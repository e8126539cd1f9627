#include "general/foundation/execution/ProcessPrimitives.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <limits>

namespace foundation::primitives {

namespace {

constexpr unsigned int kCloseRangeCloexec = 4;
// A container's limit may be a thousand million; nobody has that many open.
constexpr rlim_t kHighestDescriptorTried = 65536;

void markOneByOne(int lowest) noexcept {
  rlimit limit{};
  const bool known = getrlimit(RLIMIT_NOFILE, &limit) == 0;
  const rlim_t end = known ? std::min(limit.rlim_cur, kHighestDescriptorTried) : kHighestDescriptorTried;
  for (int descriptor = lowest; static_cast<rlim_t>(descriptor) < end; ++descriptor) {
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  }
}

}  // namespace

bool openPipe(int (&ends)[2]) { return pipe2(ends, O_CLOEXEC) == 0; }

Descriptor childExitDescriptor(int processIdentifier) {
  return Descriptor(static_cast<int>(syscall(SYS_pidfd_open, processIdentifier, 0)));
}

bool endWithParent(int parent) noexcept {
  // In this order: a parent that ends before the first call is noticed by the second, one that ends later by the
  // system.
  return prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == parent;
}

void closeDescriptorsOnExec(int lowest) noexcept {
  // The call itself, not the C library's function: that one is newer than some of the libraries the engine meets.
  if (syscall(SYS_close_range, lowest, std::numeric_limits<unsigned int>::max(), kCloseRangeCloexec) != 0) {
    markOneByOne(lowest);
  }
}

}  // namespace foundation::primitives
