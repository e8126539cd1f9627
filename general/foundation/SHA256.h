#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <span>

namespace foundation {

/// SHA-256, fed in pieces. Not for use by two threads at once; reads no configuration and loads
/// no provider.
class SHA256 {
 public:
  using Digest = std::array<std::byte, 32>;

  SHA256();
  ~SHA256();
  SHA256(const SHA256&) = delete;
  SHA256& operator=(const SHA256&) = delete;

  void update(std::span<const std::byte> piece);
  /// The digest of everything fed since the start or the last call; starts over.
  [[nodiscard]] Digest finish();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace foundation
