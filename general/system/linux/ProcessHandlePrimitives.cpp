#include "general/system/ProcessHandlePrimitives.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <csignal>

#include "general/system/linux/ProcProcessTable.h"
#include "general/system/linux/SmallFile.h"

namespace platform::processes {

using foundation::Descriptor;

namespace {

constexpr std::size_t kLongestStatFile = std::size_t{1} << 16U;

}  // namespace

Descriptor openProcess(int processIdentifier) {
  return Descriptor(static_cast<int>(syscall(SYS_pidfd_open, processIdentifier, 0)));
}

std::optional<std::string> executableOf(int processIdentifier) {
  const std::string link = "/proc/" + std::to_string(processIdentifier) + "/exe";
  std::array<char, PATH_MAX> path{};
  const ssize_t length = readlink(link.c_str(), path.data(), path.size());
  if (length <= 0 || static_cast<std::size_t>(length) >= path.size()) {
    return std::nullopt;
  }
  std::string executable(path.data(), static_cast<std::size_t>(length));
  // A process in a root of its own names a file there; and a file may have been replaced since it was started.
  struct stat running {};
  struct stat named {};
  if (stat(link.c_str(), &running) != 0 || stat(executable.c_str(), &named) != 0 || running.st_dev != named.st_dev ||
      running.st_ino != named.st_ino) {
    return std::nullopt;
  }
  return executable;
}

std::optional<int> parentOf(int processIdentifier) {
  const auto stat = readSmallFile("/proc/" + std::to_string(processIdentifier) + "/stat", kLongestStatFile);
  return stat ? parentInStat(*stat) : std::nullopt;
}

bool kill(const Descriptor& process, int processIdentifier) {
  if (process.isOpen()) {
    return syscall(SYS_pidfd_send_signal, process.number(), SIGKILL, nullptr, 0) == 0;
  }
  return ::kill(processIdentifier, SIGKILL) == 0;
}

}  // namespace platform::processes
