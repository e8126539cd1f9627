#include "InstallationDeployer/install/MemoryBudget.h"

#include <algorithm>
#include <utility>

namespace deployer {

MemoryBudget::Grant::Grant(Grant&& other) noexcept
    : budget_(std::exchange(other.budget_, nullptr)), bytes_(std::exchange(other.bytes_, 0)) {}

MemoryBudget::Grant& MemoryBudget::Grant::operator=(Grant&& other) noexcept {
  if (this != &other) {
    release();
    budget_ = std::exchange(other.budget_, nullptr);
    bytes_ = std::exchange(other.bytes_, 0);
  }
  return *this;
}

void MemoryBudget::Grant::release() {
  if (budget_ != nullptr) {
    std::exchange(budget_, nullptr)->giveBack(bytes_);
  }
}

MemoryBudget::Grant MemoryBudget::acquire(std::size_t bytes) {
  const std::size_t charged = std::min(bytes, bytes_);
  const foundation::MutexLock lock(mutex_);
  while (used_ + charged > bytes_) {
    givenBack_.wait(mutex_);
  }
  used_ += charged;
  return {*this, charged};
}

void MemoryBudget::giveBack(std::size_t bytes) {
  {
    const foundation::MutexLock lock(mutex_);
    used_ -= bytes;
  }
  givenBack_.notifyAll();
}

}  // namespace deployer
