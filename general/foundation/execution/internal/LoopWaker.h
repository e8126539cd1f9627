#pragma once

#include <optional>

#include "general/foundation/execution/Pipe.h"

namespace foundation {

/// Interrupts a poll from another thread. A wake-up that comes while nobody polls ends the next poll.
class LoopWaker {
 public:
  LoopWaker();

  /// Readable once somebody wakes; -1 when the system had no pipe left, and then nothing interrupts a poll.
  [[nodiscard]] int descriptor() const { return pipe_ ? pipe_->readEnd.number() : -1; }
  /// From any thread.
  void wake() const;
  /// Forgets the wake-ups so far.
  void clear() const;

 private:
  std::optional<Pipe> pipe_;
};

}  // namespace foundation
