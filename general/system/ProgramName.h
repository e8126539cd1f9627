#pragma once

#include <optional>
#include <string>

namespace platform {

/// The name of the program that a process runs, as the table of processes has it. For people: a process may choose it.
/// Nothing when there is no such process any more.
[[nodiscard]] std::optional<std::string> programNameOf(int processIdentifier);

}  // namespace platform
