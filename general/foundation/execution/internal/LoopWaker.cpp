#include "general/foundation/execution/internal/LoopWaker.h"

#include <unistd.h>

#include <array>

namespace foundation {

LoopWaker::LoopWaker() : pipe_(makePipe()) {
  if (pipe_ && (!setNonBlocking(pipe_->readEnd) || !setNonBlocking(pipe_->writeEnd))) {
    pipe_.reset();
  }
}

void LoopWaker::wake() const {
  if (pipe_) {
    // A full pipe means that a wake-up is on its way already.
    [[maybe_unused]] const ssize_t written = write(pipe_->writeEnd.number(), "", 1);
  }
}

void LoopWaker::clear() const {
  std::array<char, 64> bytes{};
  while (pipe_ && read(pipe_->readEnd.number(), bytes.data(), bytes.size()) > 0) {
  }
}

}  // namespace foundation
