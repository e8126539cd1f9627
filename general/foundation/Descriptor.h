#pragma once

#include <unistd.h>

#include <cstddef>
#include <span>
#include <utility>

namespace foundation {

/// Owns one open descriptor and closes it; -1 stands for none. Not for use by two threads at once.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      reset();
      number_ = std::exchange(other.number_, -1);
    }
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] int number() const { return number_; }
  [[nodiscard]] bool isOpen() const { return number_ >= 0; }
  /// Hands the number over to the caller, who closes it.
  [[nodiscard]] int release() { return std::exchange(number_, -1); }
  void reset() {
    if (number_ >= 0) {
      ::close(std::exchange(number_, -1));
    }
  }

 private:
  int number_ = -1;
};

/// Writes everything, however many calls that takes. @return 0, or -1 with errno set.
int writeAll(int descriptor, std::span<const std::byte> content);

}  // namespace foundation
