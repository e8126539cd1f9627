// A library that is preloaded into programs. In those that are named InstallationDeployer it counts what is allocated,
// of all threads, from main() on, and lets one allocation fail as when there is no memory. In others it does nothing.

#include "tests/support/FailingAllocation.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

extern "C" {
// The C library's own, under the names that it exports for replacements like this one.
void* __libc_malloc(size_t size);                      // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(size_t count, size_t size);        // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* memory, size_t size);       // NOLINT(bugprone-reserved-identifier)
void* __libc_memalign(size_t alignment, size_t size);  // NOLINT(bugprone-reserved-identifier)
}

namespace {

using support::AllocationPage;
using Main = int (*)(int, char**, char**);

constexpr std::size_t kReceipt = 1;
constexpr std::size_t kNested = 2;

AllocationPage* page = nullptr;  // while this process is counted
std::size_t role = 0;
std::uintptr_t base = 0;
Main programsMain = nullptr;

AllocationPage* mappedPage() {
  const char* path = std::getenv(AllocationPage::kVariable);
  const int file = path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
  if (file < 0) {
    return nullptr;
  }
  void* mapped = mmap(nullptr, sizeof(AllocationPage), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  return mapped == MAP_FAILED ? nullptr : static_cast<AllocationPage*>(mapped);
}

bool isEngine() {
  std::array<char, PATH_MAX> path{};
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
  return length > 0 &&
         std::string_view(path.data(), static_cast<std::size_t>(length)).ends_with("/InstallationDeployer");
}

std::size_t roleOf(const AllocationPage& known, int count, char** arguments) {
  for (int index = 1; index < count; ++index) {
    if (std::strcmp(arguments[index], "--receipt") == 0) {
      return kReceipt;
    }
  }
  return std::strcmp(arguments[0], known.engine) == 0 ? 0 : kNested;
}

void noteCallers(std::size_t size) {
  std::array<void*, AllocationPage::kDepth> callers{};
  const int depth = backtrace(callers.data(), static_cast<int>(callers.size()));
  for (int index = 0; index < depth; ++index) {
    page->callers[index] = reinterpret_cast<std::uintptr_t>(callers.at(static_cast<std::size_t>(index))) - base;
  }
  page->size = size;
}

/// Whether this allocation is the one that fails.
bool fails(std::size_t size) {
  if (page == nullptr) {
    return false;
  }
  const unsigned long number = page->counted[role].fetch_add(1) + 1;
  if (role != page->role || number != page->number) {
    return false;
  }
  noteCallers(size);
  page->reached = true;
  errno = ENOMEM;
  return true;
}

int countedMain(int count, char** arguments, char** environment) {
  AllocationPage* known = isEngine() ? mappedPage() : nullptr;
  if (known != nullptr) {
    std::array<void*, 1> any{};
    static_cast<void>(backtrace(any.data(), 1));  // loads what it needs, which allocates
    base = _r_debug.r_map->l_addr;
    role = roleOf(*known, count, arguments);
    page = known;
  }
  return programsMain(count, arguments, environment);
}

}  // namespace

extern "C" {

void* malloc(size_t size) { return fails(size) ? nullptr : __libc_malloc(size); }
void* calloc(size_t count, size_t size) { return fails(count * size) ? nullptr : __libc_calloc(count, size); }
void* realloc(void* memory, size_t size) { return fails(size) ? nullptr : __libc_realloc(memory, size); }
void* memalign(size_t alignment, size_t size) { return fails(size) ? nullptr : __libc_memalign(alignment, size); }
void* aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }
int posix_memalign(void** memory, size_t alignment, size_t size) {
  void* made = memalign(alignment, size);
  if (made == nullptr) {
    return ENOMEM;
  }
  *memory = made;
  return 0;
}

// What begins a program, constructors of its own included. NOLINTNEXTLINE(bugprone-reserved-identifier)
int __libc_start_main(Main main, int count, char** arguments, void (*begin)(), void (*end)(), void (*loader)(),
                      void* stack) {
  using Start = int (*)(Main, int, char**, void (*)(), void (*)(), void (*)(), void*);
  programsMain = main;
  auto* start = reinterpret_cast<Start>(dlsym(RTLD_NEXT, "__libc_start_main"));
  return start(countedMain, count, arguments, begin, end, loader, stack);
}
}
