#pragma once

#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>

namespace support {

/// What FailingAllocation.cpp, loaded into the engine's processes, shares with the test: a file that both map. Whole
/// before the first process starts; from then on the processes write what has no comment.
struct AllocationPage {
  static constexpr const char* kVariable = "CORVANE_ALLOCATION_PAGE";  ///< the environment's: the file's path inside
  static constexpr std::size_t kRoles = 3;                             ///< as EngineRole counts them
  static constexpr std::size_t kDepth = 24;

  char engine[PATH_MAX];  ///< the path of the engine that is run
  std::size_t role;       ///< whose allocations are numbered
  unsigned long number;   ///< which of them fails, from 1

  std::atomic<unsigned long> counted[kRoles];
  std::atomic<bool> reached;
  std::size_t size;  ///< of the one that failed
  std::uintptr_t
      callers[kDepth];  ///< who asked for it, as offsets into the program; innermost first, 0 behind the last
};

}  // namespace support
