#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

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
  /// Takes no work any more, and releases who waits for work that was never run.
  void end();
  [[nodiscard]] bool hasEnded();

 private:
  enum class State { Waiting, Done, Dropped };
  struct Item {
    Work work;
    State state;
  };
  class Completion;

  std::mutex mutex_;
  std::condition_variable changed_;
  // Guarded by the mutex, the states of the items included.
  std::deque<std::shared_ptr<Item>> items_;
  bool ended_ = false;
};

}  // namespace foundation
