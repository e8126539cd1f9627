#include "general/foundation/execution/ProcessPrimitives.h"

#include <fcntl.h>
#include <sys/event.h>
#include <unistd.h>

namespace foundation::primitives {

bool openPipe(int (&ends)[2]) {
  if (pipe(ends) != 0) {
    return false;
  }
  fcntl(ends[0], F_SETFD, FD_CLOEXEC);
  fcntl(ends[1], F_SETFD, FD_CLOEXEC);
  return true;
}

Descriptor childExitDescriptor(int processIdentifier) {
  Descriptor queue(kqueue());
  if (!queue.isOpen()) {
    return queue;
  }
  fcntl(queue.number(), F_SETFD, FD_CLOEXEC);
  struct kevent change;
  EV_SET(&change, static_cast<uintptr_t>(processIdentifier), EVFILT_PROC, EV_ADD, NOTE_EXIT, 0, nullptr);
  if (kevent(queue.number(), &change, 1, nullptr, 0, nullptr) != 0) {
    return {};
  }
  return queue;
}

bool endWithParent(int parent) noexcept {
  // Missing here: the system does not end a process with its parent. A child would have to watch its parent itself
  // (EVFILT_PROC with NOTE_EXIT) once its program runs.
  return getppid() == parent;
}

void closeDescriptorsOnExec(int lowest) noexcept {
  const int end = getdtablesize();
  for (int descriptor = lowest; descriptor < end; ++descriptor) {
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  }
}

}  // namespace foundation::primitives
