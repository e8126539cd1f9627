#pragma once

#include <optional>
#include <string>

#include "general/foundation/Descriptor.h"

/// What each system does in its own way to look at and end other processes. For RunningApplication and ProcessSelf
/// only.
namespace platform::processes {

/// What keeps a process's number from being taken for another's; not open where the system has no such thing.
[[nodiscard]] foundation::Descriptor openProcess(int processIdentifier);
/// The file that the process runs, by the path it has in this process's root; nothing when that cannot be told or is
/// another file by now.
[[nodiscard]] std::optional<std::string> executableOf(int processIdentifier);
/// The process that started it, or took it over from one that ended; nothing when that cannot be told.
[[nodiscard]] std::optional<int> parentOf(int processIdentifier);
/// Kills the process, through what openProcess() gave where that is open.
[[nodiscard]] bool kill(const foundation::Descriptor& process, int processIdentifier);

}  // namespace platform::processes
