#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "general/foundation/execution/Task.h"

namespace deployer {

/// The process of an installed product's receipt, as the installer that starts it has it: at most one, which ends with
/// this process however that ends.
///
/// Waits have no time limit, but none outlasts the process. How a process ended that nobody told to end is logged,
/// once. Belongs to the thread that starts the process; that thread must live as long as the process is needed.
class ReceiptProcess {
 public:
  /// Starts the receipt's engine; none may be started yet. False when it cannot be started; why has been logged.
  [[nodiscard]] bool start(const std::string& executable);
  /// From its start until awaitEnd(), also when it has ended meanwhile.
  [[nodiscard]] bool isStarted() const { return task_.has_value(); }
  /// 0 when none is started.
  [[nodiscard]] int processIdentifier() const { return task_ ? task_->processIdentifier() : 0; }

  /// Turns the run loop of the thread until one of its sources, or the look, clears the flag, or the process has ended.
  /// One must be started.
  /// @param look called about every half second while nothing has cleared the flag, for what no source has told.
  void awaitServices(const bool& areAwaited, const std::function<void()>& look);

  /// Whether the process has ended, for who could not reach it; its end is waited for for a moment.
  [[nodiscard]] bool hasVanished();
  /// Waits for the end of a process that was started and told to end, for so long at most. True when it has ended;
  /// another one can then be started.
  [[nodiscard]] bool awaitEnd(std::chrono::milliseconds patience);

 private:
  void reportEnd(std::string_view message);

  std::string executable_;
  std::optional<foundation::Task> task_;
  bool isEndReported_ = false;
};

}  // namespace deployer
