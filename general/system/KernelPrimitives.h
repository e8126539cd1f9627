#pragma once

namespace platform {

/// The running kernel's major release number, in the numbering of kernelMajorFor(); 0 when the system does not say.
[[nodiscard]] int runningKernelMajor();

}  // namespace platform
