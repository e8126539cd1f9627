#include "general/system/BootTimePrimitives.h"

#include <cerrno>

#include "general/system/linux/BootIdentity.h"
#include "general/system/linux/SmallFile.h"

namespace platform {

namespace {

constexpr const char* kBootIdentityPath = "/proc/sys/kernel/random/boot_id";
constexpr std::size_t kIdentityLength = 36;

}  // namespace

// The kernel does not keep the instant of its start: what it reports as such is the wall clock's time less the time
// since the boot, and moves whenever the clock is set. Only the boot's identity stays, so a number made from it stands
// in.
std::optional<std::int64_t> bootSeconds() {
  const auto identity = readSmallFile(kBootIdentityPath, kIdentityLength + 1);
  if (!identity) {
    return std::nullopt;
  }
  if (identity->size() < kIdentityLength) {
    errno = EINVAL;
    return std::nullopt;
  }
  return secondsForBootIdentity(std::string_view(*identity).substr(0, kIdentityLength));
}

}  // namespace platform
