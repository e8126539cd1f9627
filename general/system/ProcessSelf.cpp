#include "general/system/ProcessSelf.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <optional>

#include "general/system/ProcessHandlePrimitives.h"

namespace platform::self {

namespace {

bool isClosed(int descriptor) { return fcntl(descriptor, F_GETFD) < 0 && errno == EBADF; }

void connectToNothing(int descriptor) {
  int opened = open("/dev/null", O_RDWR | O_CLOEXEC);
  if (opened < 0) {
    // No null device here. The root folder takes the number all the same; reading and writing fail on it.
    opened = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  }
  if (opened == descriptor) {
    fcntl(descriptor, F_SETFD, 0);  // the standard descriptors are what children inherit
  } else if (opened >= 0) {
    dup2(opened, descriptor);
    close(opened);
  }
}

void setSignalAction(int signal, void (*action)(int)) {
  struct sigaction wanted = {};
  wanted.sa_handler = action;
  sigemptyset(&wanted.sa_mask);
  sigaction(signal, &wanted, nullptr);
}

}  // namespace

std::uint32_t realUserId() { return getuid(); }

std::uint32_t effectiveUserId() { return geteuid(); }

bool setUserId(std::uint32_t userId) { return setuid(userId) == 0; }

int processIdentifier() { return static_cast<int>(getpid()); }

bool descendsFrom(int processIdentifier) {
  // The first process of a system has none; the limit is for chains that change while one follows them.
  constexpr int kMostGenerations = 1000;
  std::optional<int> ancestor = static_cast<int>(getppid());
  for (int generation = 0; ancestor && *ancestor > 0 && generation < kMostGenerations; ++generation) {
    if (*ancestor == processIdentifier) {
      return true;
    }
    ancestor = processes::parentOf(*ancestor);
  }
  return false;
}

bool executableIsInPlace() { return processes::executableOf(processIdentifier()).has_value(); }

std::optional<std::string> variable(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

bool takeVariable(const char* name) {
  const bool isSet = std::getenv(name) != nullptr;
  unsetenv(name);
  return isSet;
}

void prepareForUnattendedRun() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (isClosed(descriptor)) {
      connectToNothing(descriptor);
    }
  }
  setSignalAction(SIGPIPE, SIG_IGN);
  setSignalAction(SIGXFSZ, SIG_IGN);
  // Who started the engine may have ignored it, and then the system keeps no exit status of children.
  setSignalAction(SIGCHLD, SIG_DFL);
}

}  // namespace platform::self
