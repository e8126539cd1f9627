#include "tests/support/NoMemory.h"

#include <cstdlib>
#include <new>

namespace {

thread_local bool counts = false;
thread_local unsigned long left = 0;

}  // namespace

// All forms that are given back by the forms of delete below: a sanitizer's own may not be mixed with them.
void* operator new(std::size_t size, const std::nothrow_t& /*nothrow*/) noexcept {
  if (counts && left > 0 && --left == 0) {
    return nullptr;
  }
  return std::malloc(size == 0 ? 1 : size);
}

void* operator new(std::size_t size) {
  if (void* const memory = operator new(size, std::nothrow)) {
    return memory;
  }
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t& /*nothrow*/) noexcept { std::free(memory); }

namespace support {

NoMemory::NoMemory(unsigned long number) {
  left = number;
  counts = true;
}

NoMemory::~NoMemory() { counts = false; }

bool NoMemory::wasReached() { return left == 0; }

}  // namespace support
