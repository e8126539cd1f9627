#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>

#include "general/foundation/Mutex.h"
#include "general/foundation/ThreadAnnotations.h"
#include "general/foundation/execution/internal/LoopWaker.h"

namespace foundation {

/// Work that other threads hand over to a run loop, in order. Use from any thread, but for serveOne(), which belongs to
/// the loop's.
class LoopInbox {
 public:
  using Work = std::function<void()>;

  /// Wakes the loop; with `wait`, returns when the work is done. False when the loop's thread has ended before the work
  /// was done, or at once when it need not be awaited.
  bool add(Work work, bool wait, const LoopWaker& waker);
  [[nodiscard]] std::size_t size();
  /// Runs the oldest piece of work, if there is any.
  void serveOne();
  /// Takes no work any more, and releases who waits for work that was never run. Where a thread ends there is nobody to
  /// throw to, so it takes no memory.
  void end() noexcept;
  [[nodiscard]] bool hasEnded();

 private:
  enum class State { Waiting, Done, Dropped };
  struct Item {
    Work work;
    State state;
  };
  class Completion;

  std::shared_ptr<Item> dropOne();

  Mutex mutex_;
  Condition changed_;
  // The states of the items are guarded with them.
  std::deque<std::shared_ptr<Item>> items_ CORVANE_GUARDED_BY(mutex_);
  bool ended_ CORVANE_GUARDED_BY(mutex_) = false;
};

}  // namespace foundation
