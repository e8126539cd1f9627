#pragma once

#include <chrono>
#include <cstddef>

namespace logging {

/// How long who logs waits for who reads: all waits together so long at most, until something was taken again. What was
/// not taken by then is dropped and counted. Not for use by two threads at once.
class Patience {
 public:
  explicit Patience(std::chrono::milliseconds whole) : whole_(whole) {}

  void setWhole(std::chrono::milliseconds whole) {
    whole_ = whole;
    renew();
  }
  /// Waits until the descriptor may take something. False when there is no patience left, or the system cannot wait.
  [[nodiscard]] bool waitToWrite(int descriptor);
  void drop() { ++dropped_; }
  [[nodiscard]] std::size_t dropped() const { return dropped_; }
  /// What was dropped has been told.
  void tell() { dropped_ = 0; }
  /// So much was taken. There is room for a little without a reader; more shows that somebody reads, and is worth
  /// waiting for again.
  void take(std::size_t bytes);
  void renew() {
    spent_ = {};
    taken_ = 0;
  }

 private:
  std::chrono::milliseconds whole_;
  std::chrono::steady_clock::duration spent_{};
  std::size_t taken_ = 0;  // since something was spent
  std::size_t dropped_ = 0;
};

}  // namespace logging
