#include "InstallationDeployer/steps/BufferAllowance.h"

#include <algorithm>
#include <utility>

namespace deployer {

BufferAllowance::Grant::Grant(Grant&& other) noexcept
    : allowance_(std::exchange(other.allowance_, nullptr)), bytes_(std::exchange(other.bytes_, 0)) {}

BufferAllowance::Grant& BufferAllowance::Grant::operator=(Grant&& other) noexcept {
  if (this != &other) {
    release();
    allowance_ = std::exchange(other.allowance_, nullptr);
    bytes_ = std::exchange(other.bytes_, 0);
  }
  return *this;
}

void BufferAllowance::Grant::release() {
  if (allowance_ != nullptr) {
    std::exchange(allowance_, nullptr)->giveBack(bytes_);
  }
}

BufferAllowance::Grant BufferAllowance::acquire(std::size_t bytes) {
  const std::size_t charged = std::min(bytes, bytes_);
  std::unique_lock lock(mutex_);
  givenBack_.wait(lock, [&] { return used_ + charged <= bytes_; });
  used_ += charged;
  return {*this, charged};
}

void BufferAllowance::giveBack(std::size_t bytes) {
  {
    const std::lock_guard lock(mutex_);
    used_ -= bytes;
  }
  givenBack_.notify_all();
}

}  // namespace deployer
