#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace foundation {

class LoopSources;

/// Delivers timers, readiness of descriptors and work handed over by other threads to one thread, that calls
/// runUntil() or runWhile(). Everything but perform() and wakeUp() belongs to that thread, the sources included.
/// Handlers may add and remove sources, their own included, and may turn the loop again: such an inner turn serves
/// every source, the one being served included, except timers whose handler is still running. A handler that throws
/// ends the turn with its exception.
class RunLoop {
 public:
  using Clock = std::chrono::steady_clock;
  using Handler = std::function<void()>;
  using Predicate = std::function<bool()>;
  enum class Interest { Readable, Writable };

  /// How long a wait goes on at most before it looks again at what it waits for.
  static constexpr std::chrono::milliseconds kTurn{500};

  /// Owns a timer or a watched descriptor: at its end the source is removed from the loop and not served again, not
  /// even in a turn that runs already. It must end on the loop's thread, or when that thread has ended; it may outlive
  /// the loop, and then does nothing. A timer that came due for the only time is gone without it.
  class Source {
   public:
    Source() = default;  ///< none
    ~Source();
    Source(Source&& other) noexcept;
    Source& operator=(Source&& other) noexcept;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    /// Whether it was given a source since it was last empty.
    explicit operator bool() const { return number_ != 0; }
    /// Removes the source now. A handler may do so with its own.
    void reset();

   private:
    friend class RunLoop;
    Source(const std::shared_ptr<LoopSources>& sources, std::uint64_t number);
    std::weak_ptr<LoopSources> sources_;
    std::uint64_t number_ = 0;
  };

  /// A loop of the calling thread that is not its current().
  RunLoop();
  ~RunLoop();
  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;

  /// The loop of the calling thread, made on first use. Others may keep it longer than the thread lives.
  [[nodiscard]] static std::shared_ptr<RunLoop> current();

  /// @param interval until the first and between further deliveries; deliveries that were missed are not made up for.
  /// @param handler an empty one only wakes the loop.
  [[nodiscard]] Source addTimer(std::chrono::milliseconds interval, bool repeats, Handler handler);
  /// The descriptor must stay open until the source is removed. The handler runs in every turn in which the descriptor
  /// is ready, at its end or broken; it should not count on a read that cannot block.
  [[nodiscard]] Source addDescriptor(int descriptor, Interest interest, Handler handler);

  /// Runs one turn: waits until at least one source was served, wakeUp() was called or the deadline passed. Serves what
  /// is ready even when the deadline has passed already. False at once when there is no source at all and no work
  /// waits.
  bool runUntil(Clock::time_point deadline);
  /// Runs turns as long as the condition holds, also when there is no source. It is looked at before every turn, and a
  /// turn lasts kTurn at most; whoever changes it on another thread calls wakeUp() if that is too long.
  /// @param afterTurn runs after each turn, unless the condition holds no more.
  void runWhile(const Predicate& condition, const Handler& afterTurn = {});

  /// From any thread: runs the work on the loop's thread, in the order in which it was handed over; with `wait`,
  /// returns when it is done (called on the loop's own thread, it then runs at once). False when the loop's thread has
  /// ended before the work was done.
  bool perform(Handler work, bool wait);
  /// From any thread: ends the turn that runs, or the next one.
  void wakeUp();

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace foundation
