#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace foundation {

/// Delivers timers, readiness of descriptors and work handed over by other threads to one thread, that calls
/// runUntil(). Everything but perform() and wakeUp() belongs to that thread. Handlers may add and remove sources, their
/// own included, and may turn the loop again: such an inner turn serves every source, the one being served included,
/// except timers whose handler is still running. A handler that throws ends the turn with its exception.
class RunLoop {
 public:
  using Clock = std::chrono::steady_clock;
  using Handler = std::function<void()>;
  enum class Interest { Readable, Writable };
  using SourceId = std::uint64_t;

  /// A loop of the calling thread that is not its current().
  RunLoop();
  ~RunLoop();
  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;

  /// The loop of the calling thread, made on first use. Others may keep it longer than the thread lives.
  [[nodiscard]] static std::shared_ptr<RunLoop> current();

  /// @param interval until the first and between further deliveries; deliveries that were missed are not made up for.
  /// @return an id for removeSource(). An empty handler only wakes the loop.
  SourceId addTimer(std::chrono::milliseconds interval, bool repeats, Handler handler);
  /// The descriptor must stay open until the source is removed. The handler runs in every turn in which the descriptor
  /// is ready, at its end or broken; it should not count on a read that cannot block.
  SourceId addDescriptor(int descriptor, Interest interest, Handler handler);
  /// Once removed, a source is not served again. Ids that are no longer known are ignored.
  void removeSource(SourceId source);

  /// Runs one turn: waits until at least one source was served, wakeUp() was called or the deadline passed. Serves what
  /// is ready even when the deadline has passed already. False at once when there is no source at all and no work
  /// waits.
  bool runUntil(Clock::time_point deadline);

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
