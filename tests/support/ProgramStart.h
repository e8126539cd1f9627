#pragma once

#include <sys/types.h>

#include <array>
#include <string>
#include <vector>

#include "tests/support/Program.h"
#include "tests/support/RootDirectory.h"

namespace support {

inline constexpr int kStandardDescriptors = 3;

/// Everything the child needs, made before the fork so that the child allocates nothing.
struct ProgramStart {
  const RootDirectory* root = nullptr;
  const RunOptions* options = nullptr;
  std::vector<char*> arguments;
  std::vector<char*> environment;
  const char* program = nullptr;
  std::array<int, kStandardDescriptors> standard{-1, -1, -1};
  int gate = -1;
  int launchStatus = -1;
  pid_t parent = 0;
};

/// For execve(2); valid as long as the texts are.
[[nodiscard]] std::vector<char*> pointers(const std::vector<std::string>& texts);
/// Forks, so that the child is born into the root's process namespace and is still a child of the caller.
[[nodiscard]] pid_t forkInto(const RootDirectory& root);
/// In the child: waits at its gate, takes its surroundings and runs the program, or reports the errno that kept it from
/// that.
[[noreturn]] void becomeProgram(const ProgramStart& start);

}  // namespace support
