#pragma once

#include <array>
#include <string>
#include <vector>

#include "tests/support/FaultyRun.h"

namespace support {

struct AllocationPage;

/// Counts what a run's processes allocate and lets one allocation fail, through a library that is preloaded into them.
/// What is allocated before main() is not counted: nothing has been touched by then. A system call is none of it, nor
/// is what the dynamic loader takes for itself.
class AllocationCount {
 public:
  /// Puts the library and the page it shares into the root. Throws PrivateRootError.
  /// @param engine the path of the engine that is run, as seen inside.
  AllocationCount(PrivateRoot& root, const Fault& fault, const std::string& engine);
  ~AllocationCount();
  AllocationCount(const AllocationCount&) = delete;
  AllocationCount& operator=(const AllocationCount&) = delete;

  /// What the run's environment needs to have.
  [[nodiscard]] static std::vector<std::string> environment();
  /// Whether and where it failed and how many there were.
  void tell(FaultOutcome& outcome) const;

 private:
  [[nodiscard]] std::string describe() const;

  AllocationPage* page_ = nullptr;
};

}  // namespace support
