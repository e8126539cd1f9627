#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "general/foundation/Mutex.h"
#include "general/foundation/ThreadAnnotations.h"
#include "general/logging/LogFile.h"
#include "general/logging/Patience.h"

namespace logging {

/// An open file, such as standard error, to which whole lines are written, and which may be a pipe that nobody reads. A
/// reader that is slow is waited for. One that stops reading holds everybody up for a bounded time in all; from then on
/// lines are dropped, until it reads again: then it is told how many were. Use from any thread.
class LineOutput {
 public:
  /// The line, with its newline, that says how many were dropped.
  using DroppedLine = std::function<std::string(std::size_t count)>;

  /// @param descriptor stays open, or may be closed: then lines go nowhere.
  LineOutput(int descriptor, std::chrono::milliseconds patience) : descriptor_(descriptor), patience_(patience) {}

  /// From now on the descriptor's file stays within its size; a line for which it has no room is dropped.
  void keepWithin(LogFile file);
  void setPatience(std::chrono::milliseconds patience);
  void write(std::string_view line, const DroppedLine& droppedLine);
  /// Says what was dropped, if it can be said without waiting.
  void tellDropped(const DroppedLine& droppedLine);

 private:
  enum class Outcome { Written, Dropped, Impossible };

  [[nodiscard]] bool hasToldDropped(const DroppedLine& droppedLine) CORVANE_REQUIRES(mutex_);
  [[nodiscard]] Outcome writeAll(std::string_view line, bool wait) CORVANE_REQUIRES(mutex_);

  const int descriptor_;
  foundation::Mutex mutex_;
  std::optional<LogFile> file_ CORVANE_GUARDED_BY(mutex_);
  Patience patience_ CORVANE_GUARDED_BY(mutex_);
  /// The end of the last line was dropped.
  bool isTorn_ CORVANE_GUARDED_BY(mutex_) = false;
};

}  // namespace logging
