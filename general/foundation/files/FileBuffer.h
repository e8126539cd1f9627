#pragma once

#include <cstddef>
#include <span>

namespace foundation {

/// Memory for the bytes of one file at a time, kept between files because fresh memory for every file costs half as
/// much again as reading it. Private to its owner, so nobody can change the bytes between check and use (TOCTOU).
/// Not for use by two threads at once.
class FileBuffer {
 public:
  FileBuffer() = default;
  ~FileBuffer();
  FileBuffer(FileBuffer&& other) noexcept;
  FileBuffer& operator=(FileBuffer&& other) noexcept;
  FileBuffer(const FileBuffer&) = delete;
  FileBuffer& operator=(const FileBuffer&) = delete;

  /// Makes room for this many bytes, keeping what is there. False when the system has no such memory to give.
  [[nodiscard]] bool reserve(std::size_t bytes);
  /// Gives memory beyond this many bytes back to the system.
  void shrinkTo(std::size_t bytes);
  [[nodiscard]] std::span<std::byte> memory() { return {memory_, capacity_}; }

 private:
  std::byte* memory_ = nullptr;
  std::size_t capacity_ = 0;
};

}  // namespace foundation
