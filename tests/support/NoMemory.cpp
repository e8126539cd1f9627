#include "tests/support/NoMemory.h"

#include <cstdlib>
#include <new>

namespace {

thread_local bool counts = false;
thread_local unsigned long left = 0;

}  // namespace

void* operator new(std::size_t size) {
  if (counts && left > 0 && --left == 0) {
    throw std::bad_alloc();
  }
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
    return memory;
  }
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace support {

NoMemory::NoMemory(unsigned long number) {
  left = number;
  counts = true;
}

NoMemory::~NoMemory() { counts = false; }

bool NoMemory::wasReached() { return left == 0; }

}  // namespace support
