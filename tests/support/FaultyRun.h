#pragma once

#include <array>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/PrivateRoot.h"

namespace support {

/// Which of the engine's processes makes a call: the one that is run, the receipt's that it starts (`--receipt`), or
/// the engine of another bundle. A process between fork and exec counts for the one that forked it.
enum class EngineRole { Engine, Receipt, Nested };
inline constexpr std::size_t kEngineRoles = 3;
[[nodiscard]] std::string_view nameOfRole(EngineRole role);

/// The `number`-th (from 1) of these calls, of all threads of the processes in this role, answers `error` and has no
/// effect. With `isAllocation` it is the `number`-th allocation of memory that fails, and no call.
struct Fault {
  static constexpr unsigned long kNever = std::numeric_limits<unsigned long>::max();

  std::vector<long> calls;  ///< numbers as in <sys/syscall.h>
  EngineRole role = EngineRole::Engine;
  unsigned long number = kNever;
  int error = 0;  ///< an errno
  bool isAllocation = false;
};

struct FaultOutcome {
  bool reached = false;    ///< false: the run ended before the call came
  std::string call;        ///< the call that failed, with the path or descriptor; or how much memory who asked for
  bool leftNobody = true;  ///< false: a process was still there some seconds after the run's end, and was killed
  /// How many of each of the calls were made in each role, by the call's number.
  std::map<long, std::array<unsigned long, kEngineRoles>> callsSeen;
  std::array<unsigned long, kEngineRoles> allocationsSeen{};  ///< where an allocation was to fail
  Outcome outcome;                                            ///< timedOut: it did not end by itself
};

class AllocationCount;

/// Runs the engine in a private root and lets one system call fail, as a full disk, a signal or a missing descriptor
/// would, or one allocation of memory. Only processes that run a file named InstallationDeployer are counted, so that
/// no call of a product's program or of a recorded command fails. What the dynamic loader does before the program
/// begins is not counted either: a program that cannot be loaded says so by itself.
class FaultyRun {
 public:
  /// Why this system lets nobody answer system calls; nothing when it does. For GTEST_SKIP.
  [[nodiscard]] static std::optional<std::string> whyImpossible();

  /// Starts the program. Throws PrivateRootError when it cannot be started or watched.
  FaultyRun(PrivateRoot& root, const std::vector<std::string>& arguments, const Fault& fault,
            const RunOptions& options = {});
  ~FaultyRun();
  FaultyRun(const FaultyRun&) = delete;
  FaultyRun& operator=(const FaultyRun&) = delete;

  [[nodiscard]] RunningProgram& program();
  /// Waits for its end and that of all that it started. Once.
  [[nodiscard]] FaultOutcome finish();

 private:
  class Supervisor;

  std::unique_ptr<AllocationCount> allocations_;
  std::unique_ptr<RunningProgram> program_;
  std::unique_ptr<Supervisor> supervisor_;
};

}  // namespace support
