#include "general/system/ProcessHandlePrimitives.h"

#include <libproc.h>

#include <array>
#include <csignal>

namespace platform::processes {

using foundation::Descriptor;

Descriptor openProcess(int /*processIdentifier*/) { return {}; }

std::optional<std::string> executableOf(int processIdentifier) {
  std::array<char, PROC_PIDPATHINFO_MAXSIZE> path{};
  const int length = proc_pidpath(processIdentifier, path.data(), static_cast<std::uint32_t>(path.size()));
  return length > 0 ? std::optional(std::string(path.data(), static_cast<std::size_t>(length))) : std::nullopt;
}

std::optional<int> parentOf(int processIdentifier) {
  proc_bsdshortinfo info{};
  const int size = static_cast<int>(sizeof info);
  const int filled = proc_pidinfo(processIdentifier, PROC_PIDT_SHORTBSDINFO, 0, &info, size);
  return filled == size ? std::optional(static_cast<int>(info.pbsi_ppid)) : std::nullopt;
}

bool kill(const Descriptor& /*process*/, int processIdentifier) { return ::kill(processIdentifier, SIGKILL) == 0; }

}  // namespace platform::processes
