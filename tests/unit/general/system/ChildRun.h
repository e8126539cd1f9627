#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace tests {

/// Runs a body in a process of its own, where it may change the process as it likes, and returns what the body
/// returned; a negative number when the process was ended by a signal.
template <class Body>
int runInChild(const Body& body) {
  const pid_t child = fork();
  if (child < 0) {
    throw std::runtime_error("cannot fork");
  }
  if (child == 0) {
    _exit(body());
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace tests
