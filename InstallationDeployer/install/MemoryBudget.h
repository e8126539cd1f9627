#pragma once

#include <cstddef>

#include "general/foundation/Mutex.h"

namespace deployer {

/// Bounds the memory that the buffers of several threads take together: whoever wants more than is left waits until
/// others are done with theirs. Used by any thread.
class MemoryBudget {
 public:
  /// Bytes that somebody may use until it is destroyed. The budget outlives it.
  class Grant {
   public:
    Grant() = default;
    Grant(MemoryBudget& budget, std::size_t bytes) : budget_(&budget), bytes_(bytes) {}
    ~Grant() { release(); }
    Grant(Grant&& other) noexcept;
    Grant& operator=(Grant&& other) noexcept;
    Grant(const Grant&) = delete;
    Grant& operator=(const Grant&) = delete;
    void release();

   private:
    MemoryBudget* budget_ = nullptr;
    std::size_t bytes_ = 0;
  };

  explicit MemoryBudget(std::size_t bytes) : bytes_(bytes) {}
  MemoryBudget(const MemoryBudget&) = delete;
  MemoryBudget& operator=(const MemoryBudget&) = delete;

  /// Waits until this many bytes are free. More than the whole budget is granted once nobody else uses any of it, so
  /// that every file gets its turn. Whoever holds a grant must not wait for anybody who may be waiting for one.
  [[nodiscard]] Grant acquire(std::size_t bytes);
  [[nodiscard]] std::size_t bytes() const { return bytes_; }

 private:
  void giveBack(std::size_t bytes);

  const std::size_t bytes_;
  foundation::Mutex mutex_;
  foundation::Condition givenBack_;
  std::size_t used_ CORVANE_GUARDED_BY(mutex_) = 0;
};

}  // namespace deployer
