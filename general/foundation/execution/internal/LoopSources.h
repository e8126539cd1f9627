#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace foundation {

/// One turn of a run loop. What it found out is stale once a handler has turned the loop itself; the next turn then
/// looks again.
class LoopTurn {
 public:
  /// @param turns counts the turns of the loop.
  explicit LoopTurn(std::uint64_t& turns) : turns_(turns), number_(++turns) {}
  [[nodiscard]] bool isStale() const { return turns_ != number_; }

 private:
  const std::uint64_t& turns_;
  const std::uint64_t number_;
};

/// The timers and the watched descriptors of a run loop. All of it belongs to the loop's thread. Handlers may add and
/// remove sources, their own included, and may turn the loop again.
class LoopSources {
 public:
  using Clock = std::chrono::steady_clock;
  using Handler = std::function<void()>;
  /// Names a source; never 0, and never the same twice.
  using Number = std::uint64_t;

  /// What a wait ended with.
  struct Ready {
    bool woken = false;  ///< the waker's descriptor is readable
    std::vector<Number> watches;
  };

  Number addTimer(std::chrono::milliseconds interval, bool repeats, Handler handler);
  /// @param events for poll().
  Number addDescriptor(int descriptor, short events, Handler handler);
  /// Numbers that are no longer known are ignored.
  void remove(Number source);
  [[nodiscard]] bool isEmpty() const { return timers_.empty() && watches_.empty(); }

  /// When the first timer is due whose handler does not run right now; the end of all time when there is none.
  [[nodiscard]] Clock::time_point nextDue() const;
  /// Waits until a watched descriptor or the waker's is ready, at most so many milliseconds. Where the system cannot
  /// tell what is ready, all counts as ready after a short pause.
  [[nodiscard]] Ready wait(int waker, int patience) const;
  /// Runs the handlers of the timers that are due, in the order in which they are. False when there were none.
  bool serveTimers(const LoopTurn& turn);
  /// Runs the handlers of those of the watches that are still there. False when there were none.
  bool serveWatches(const std::vector<Number>& ready, const LoopTurn& turn);

 private:
  // Shared with the turn that runs it, so that a handler may remove its own source.
  using SharedHandler = std::shared_ptr<const Handler>;
  struct Timer {
    Clock::time_point due;
    std::chrono::milliseconds interval;
    bool repeats;
    bool running;
    SharedHandler handler;
  };
  struct Watch {
    int descriptor;
    short events;
    SharedHandler handler;
  };
  class RunningMark;

  void serveTimer(Number source, Clock::time_point now);

  std::map<Number, Timer> timers_;
  std::map<Number, Watch> watches_;
  Number last_ = 0;
};

}  // namespace foundation
