#include "general/system/KernelPrimitives.h"

#include "general/system/SystemVersion.h"

namespace platform {

// This kernel's own release numbers belong to another numbering.
int runningKernelMajor() { return kernelMajorFor(installedSystemVersion().value_or(kNewestKnownVersion)); }

}  // namespace platform
