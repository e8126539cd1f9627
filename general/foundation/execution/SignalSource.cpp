#include "general/foundation/execution/SignalSource.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <utility>

namespace foundation {

namespace {

std::atomic<int> gWriteEnd = -1;
static_assert(std::atomic<int>::is_always_lock_free, "handlers of signals may use nothing else");

/// Runs in the handler: async-signal-safe calls only.
void passOn(int signal) {
  const int earlierErrno = errno;
  const auto byte = static_cast<unsigned char>(signal);
  // A pipe that is full of signals that nobody took yet loses this one, and nothing else.
  [[maybe_unused]] const ssize_t written = write(gWriteEnd, &byte, 1);
  errno = earlierErrno;
}

}  // namespace

SignalSource::SignalSource(RunLoop& loop, const std::vector<int>& signals, std::function<void(int)> handler)
    : handler_(std::move(handler)), pipe_(makePipe()) {
  if (!pipe_ || !setNonBlocking(pipe_->readEnd) || !setNonBlocking(pipe_->writeEnd)) {
    throw std::runtime_error("no pipe for signals can be made");
  }
  gWriteEnd = pipe_->writeEnd.number();
  source_ = loop.addDescriptor(pipe_->readEnd.number(), RunLoop::Interest::Readable, [this] { deliver(); });
  struct sigaction wanted = {};
  wanted.sa_handler = passOn;
  wanted.sa_flags = SA_RESTART;
  sigemptyset(&wanted.sa_mask);
  for (const int signal : signals) {
    Earlier earlier{signal, {}};
    sigaction(signal, nullptr, &earlier.action);
    if (earlier.action.sa_handler != SIG_IGN) {
      sigaction(signal, &wanted, nullptr);
      earlier_.push_back(earlier);
    }
  }
}

SignalSource::~SignalSource() {
  for (const Earlier& earlier : earlier_) {
    sigaction(earlier.signal, &earlier.action, nullptr);
  }
  gWriteEnd = -1;
}

void SignalSource::deliver() {
  unsigned char signal = 0;
  if (read(pipe_->readEnd.number(), &signal, 1) == 1) {
    handler_(signal);
  }
}

}  // namespace foundation
