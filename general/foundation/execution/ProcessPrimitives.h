#pragma once

#include "general/foundation/Descriptor.h"

/// What each system does in its own way for pipes and child processes. For Pipe and Task only.
namespace foundation::primitives {

/// A pipe whose ends do not outlive an exec. False with errno set when there is none to have.
[[nodiscard]] bool openPipe(int (&ends)[2]);

/// A descriptor that becomes readable when the child exits; none when this system offers no such thing.
[[nodiscard]] Descriptor childExitDescriptor(int processIdentifier);

/// Has the calling process killed when its parent ends. False when the parent, by this number, has ended already.
/// Async-signal-safe: runs between fork and exec. Does nothing where the system offers no such thing.
[[nodiscard]] bool endWithParent(int parent) noexcept;

/// Marks every descriptor from `lowest` up to be closed by the next exec. Async-signal-safe: runs between fork and
/// exec.
void closeDescriptorsOnExec(int lowest) noexcept;

}  // namespace foundation::primitives
