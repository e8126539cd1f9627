#pragma once

#include <string>
#include <vector>

namespace foundation {

/// Everything a child needs, laid out before the fork: between fork and exec nothing may be allocated.
struct ChildPlan {
  std::string program;
  std::vector<std::string> arguments;  ///< without the program's own name
  std::vector<std::string> variables;  ///< NAME=VALUE, before those that this process has itself
  const char* workingDirectory = nullptr;
  int standardInput = -1;  ///< what takes the place of descriptor 0; -1 leaves it
  int standardOutput = -1;
  int standardError = -1;
  bool endsWithParent = false;  ///< is killed when the thread that starts it ends; no promise where no system call is
  bool ownSession = false;      ///< begins a session of its own, and so belongs to no terminal
};

/// How far a child came.
struct ChildStart {
  enum class Failure { None, Resources, WorkingDirectory, Program };
  Failure failure = Failure::None;
  int errnoValue = 0;
  int processIdentifier = 0;
};

/// Starts a child with default signal handling, an empty signal mask and no descriptors but the standard three. Returns
/// once the program runs or has failed to; a child that failed is reaped.
[[nodiscard]] ChildStart startChild(const ChildPlan& plan);

}  // namespace foundation
