#include "general/system/BootTimePrimitives.h"

#include <sys/sysctl.h>
#include <sys/time.h>

namespace platform {

std::optional<std::int64_t> bootSeconds() {
  int name[2] = {CTL_KERN, KERN_BOOTTIME};
  timeval time{};
  std::size_t size = sizeof time;
  if (sysctl(name, 2, &time, &size, nullptr, 0) != 0) {
    return std::nullopt;
  }
  return time.tv_sec;
}

}  // namespace platform
