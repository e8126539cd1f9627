#pragma once

#include <sys/wait.h>
#include <unistd.h>

namespace tests {

/// The id of a process that has ended.
inline pid_t endedProcess() {
  const pid_t child = fork();
  if (child == 0) {
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  return child;
}

}  // namespace tests
