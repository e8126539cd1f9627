#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// What a process asks and sets about itself.
namespace platform::self {

[[nodiscard]] std::uint32_t realUserId();
[[nodiscard]] std::uint32_t effectiveUserId();
/// Sets real, effective and saved user id. False when the system refuses.
[[nodiscard]] bool setUserId(std::uint32_t userId);
[[nodiscard]] int processIdentifier();
/// Whether the process is the parent of this one, or the parent's parent, and so on, as far as the system tells.
[[nodiscard]] bool descendsFrom(int processIdentifier);

/// Whether the file that this process runs still has a name.
[[nodiscard]] bool executableIsInPlace();

/// A variable of the environment; nothing when it is not set.
[[nodiscard]] std::optional<std::string> variable(const char* name);
/// Whether the variable is set in the environment; takes it out, so that no child inherits it. Only while the process
/// has one thread.
[[nodiscard]] bool takeVariable(const char* name);

/// Makes the process safe to run unattended: standard descriptors that are closed are connected to the null device (so
/// that no file opened later is mistaken for one), and writing to a reader that went away or beyond the limit for the
/// size of a file is an error, not a death.
void prepareForUnattendedRun();

}  // namespace platform::self
