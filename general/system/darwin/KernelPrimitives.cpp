#include "general/system/KernelPrimitives.h"

#include <sys/utsname.h>

#include "general/system/SystemVersion.h"

namespace platform {

int runningKernelMajor() {
  utsname names{};
  return uname(&names) == 0 ? kernelMajorInRelease(names.release) : 0;
}

}  // namespace platform
