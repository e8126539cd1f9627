// timed-run: runs a command and appends how long it took and how much memory it held at most.
//
//   timed-run [--root FOLDER] RESULT OUTPUT COMMAND [ARGUMENT ...]
//
// Appends a line "seconds kilobytes" to the file RESULT; what the command prints goes to the file OUTPUT. With --root
// the command runs in that root directory. The exit code is the command's.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

namespace {

constexpr int kCannotRun = 127;
constexpr int kSignalBase = 128;

struct Call {
  const char* root = nullptr;
  const char* result = nullptr;
  const char* output = nullptr;
  char** command = nullptr;
};

[[noreturn]] void become(const Call& call) {
  const int output = open(call.output, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const bool ready = output >= 0 && dup2(output, STDOUT_FILENO) >= 0 && dup2(output, STDERR_FILENO) >= 0 &&
                     (call.root == nullptr || (chroot(call.root) == 0 && chdir("/") == 0));
  if (ready) {
    execvp(call.command[0], call.command);
  }
  std::perror(call.command[0]);
  _exit(kCannotRun);
}

int measure(const Call& call) {
  const auto begin = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child == 0) {
    become(call);
  }
  int status = 0;
  rusage usage{};
  if (child < 0 || wait4(child, &status, 0, &usage) != child) {
    std::perror("timed-run");
    return kCannotRun;
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
  std::ofstream(call.result, std::ios::app) << seconds.count() << ' ' << usage.ru_maxrss << '\n';
  return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalBase + WTERMSIG(status);
}

}  // namespace

int main(int count, char** values) {
  Call call;
  int next = 1;
  if (count > 2 && std::strcmp(values[1], "--root") == 0) {
    call.root = values[2];
    next = 3;
  }
  if (count - next < 3) {
    std::cerr << "usage: timed-run [--root FOLDER] RESULT OUTPUT COMMAND [ARGUMENT ...]\n";
    return 2;
  }
  call.result = values[next];
  call.output = values[next + 1];
  call.command = values + next + 2;
  return measure(call);
}
