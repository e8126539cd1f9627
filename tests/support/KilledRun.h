#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tests/support/PrivateRoot.h"

namespace support {

/// The moment at which a run is killed: at the `number`-th (from 1) system call, of all its threads, that is one of
/// `calls`. Counted from the start of the program; its child processes are not followed, unless one of them is to be
/// killed instead.
struct KillMoment {
  enum class When { Before, After };
  std::vector<long> calls;  ///< numbers as in <sys/syscall.h>
  unsigned long number = 1;
  When when = When::Before;  ///< Before: the call has no effect; After: it has had its effect
  /// A program, by its path inside, that the program starts: its calls count, and it alone is killed.
  std::optional<std::string> child = std::nullopt;
};

struct KilledOutcome {
  bool reached = false;         ///< false: the program ended by itself before the moment came
  unsigned long callsSeen = 0;  ///< how many of the calls there were
  Outcome outcome;
};

/// Runs a program and kills it (SIGKILL) at a moment chosen by what it has done, not by time. To kill at every moment,
/// count up KillMoment::number until a run ends by itself.
class KilledRun {
 public:
  /// The calls that change names, attributes or content of files: open (which may create), write, rename, link, mkdir,
  /// unlink, chmod, chown and their kin.
  [[nodiscard]] static std::vector<long> fileChanges();
  /// The calls of fileChanges() that change what names show: all but open and write.
  [[nodiscard]] static std::vector<long> nameAndAttributeChanges();
  /// Why this system lets nobody be watched by ptrace(2); nothing when it does. For GTEST_SKIP.
  [[nodiscard]] static std::optional<std::string> whyImpossible();

  /// Throws PrivateRootError when the program cannot be started or watched. Processes that the program started live on,
  /// as they would; they end with the root.
  [[nodiscard]] static KilledOutcome run(PrivateRoot& root, const std::vector<std::string>& arguments,
                                         const KillMoment& moment, const RunOptions& options = {});
};

}  // namespace support
