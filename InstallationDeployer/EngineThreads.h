#pragma once

namespace deployer {

/// The name that the engine's first thread gives itself. Systems that name a process by its first thread list the
/// running engine under it.
inline constexpr const char* kMainThreadName = "main thread";

}  // namespace deployer
