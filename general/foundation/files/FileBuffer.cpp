#include "general/foundation/files/FileBuffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace foundation {

namespace {

std::size_t pageSize() {
  static const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

// Mapped rather than taken from the heap, so that what is given back really leaves the process.
std::byte* allocate(std::size_t bytes) {
  void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return memory == MAP_FAILED ? nullptr : static_cast<std::byte*>(memory);
}

}  // namespace

FileBuffer::~FileBuffer() { shrinkTo(0); }

FileBuffer::FileBuffer(FileBuffer&& other) noexcept
    : memory_(std::exchange(other.memory_, nullptr)), capacity_(std::exchange(other.capacity_, 0)) {}

FileBuffer& FileBuffer::operator=(FileBuffer&& other) noexcept {
  if (this != &other) {
    shrinkTo(0);
    memory_ = std::exchange(other.memory_, nullptr);
    capacity_ = std::exchange(other.capacity_, 0);
  }
  return *this;
}

bool FileBuffer::reserve(std::size_t bytes) {
  if (bytes <= capacity_) {
    return true;
  }
  if (bytes > static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max()) - pageSize()) {
    return false;
  }
  const std::size_t newCapacity = (bytes + pageSize() - 1) / pageSize() * pageSize();
  std::byte* const newMemory = allocate(newCapacity);
  if (newMemory == nullptr) {
    return false;
  }
  if (memory_ != nullptr) {
    std::memcpy(newMemory, memory_, capacity_);
    munmap(memory_, capacity_);
  }
  memory_ = newMemory;
  capacity_ = newCapacity;
  return true;
}

void FileBuffer::shrinkTo(std::size_t bytes) {
  if (bytes >= capacity_) {
    return;
  }
  const std::size_t kept = std::min((bytes + pageSize() - 1) / pageSize() * pageSize(), capacity_);
  if (kept < capacity_ && munmap(memory_ + kept, capacity_ - kept) == 0) {
    capacity_ = kept;
    memory_ = kept == 0 ? nullptr : memory_;
  }
}

}  // namespace foundation
