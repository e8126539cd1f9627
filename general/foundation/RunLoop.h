#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace foundation {

/// Delivers timers, readiness of descriptors and work handed over by other threads to one thread, that calls run().
/// Everything but perform() and wakeUp() belongs to that thread. Handlers may add and remove sources, their own
/// included, and may turn the loop again.
class RunLoop {
 public:
  using Clock = std::chrono::steady_clock;
  using Handler = std::function<void()>;
  enum class Interest { Readable, Writable };
  using SourceId = std::uint64_t;

  RunLoop();
  ~RunLoop();
  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;

  /// The loop of the calling thread, made on first use.
  [[nodiscard]] static std::shared_ptr<RunLoop> current();

  /// @return an id for removeSource(). An empty handler only wakes the loop.
  SourceId addTimer(std::chrono::milliseconds interval, bool repeats, Handler handler);
  /// The descriptor must stay open until the source is removed.
  SourceId addDescriptor(int descriptor, Interest interest, Handler handler);
  void removeSource(SourceId source);

  /// Runs one turn: waits until at least one source was served or the deadline passed. False at once when there is no
  /// source at all and no work waits.
  bool runUntil(Clock::time_point deadline);

  /// From any thread: runs the work on the loop's thread; with `wait`, returns when it is done (called on the loop's own
  /// thread, it then runs at once). False when the loop's thread has ended.
  bool perform(Handler work, bool wait);
  void wakeUp();

 private:
  class Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace foundation
