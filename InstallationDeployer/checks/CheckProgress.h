#pragma once

#include <atomic>
#include <cstdint>

namespace deployer {

/// How far a check is, and whether anybody still wants it. Shared by those who check and those who wait for it, on any
/// threads.
class CheckProgress {
 public:
  /// Ends the check as soon as the piece of a file at hand has been dealt with.
  void stop() { stopped_ = true; }
  [[nodiscard]] bool isStopped() const { return stopped_; }

  void expect(std::uint64_t bytes) { total_ += bytes; }
  void advance(std::uint64_t bytes) { done_ += bytes; }
  /// Of the bytes expected; 0 before they are known, never more than 100.
  [[nodiscard]] int percent() const;

 private:
  std::atomic<bool> stopped_ = false;
  std::atomic<std::uint64_t> total_ = 0;
  std::atomic<std::uint64_t> done_ = 0;
};

}  // namespace deployer
