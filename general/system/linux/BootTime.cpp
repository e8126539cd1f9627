#include "general/system/BootTime.h"

#include <cerrno>

#include "general/system/linux/BootIdentity.h"
#include "general/system/linux/SmallFile.h"

namespace platform {

namespace {

constexpr const char* kBootIdentityPath = "/proc/sys/kernel/random/boot_id";
constexpr std::size_t kIdentityLength = 36;
constexpr std::uint64_t kHashStart = 14695981039346656037U;
constexpr std::uint64_t kHashPrime = 1099511628211U;
// The numbers lie in the seventeen years after the first instant of 2004.
constexpr std::int64_t kFirstSecond = 1072915200;
constexpr std::uint64_t kSecondsMask = (std::uint64_t{1} << 29U) - 1;

}  // namespace

std::int64_t secondsForBootIdentity(std::string_view identity) {
  std::uint64_t hash = kHashStart;
  for (const char letter : identity) {
    hash = (hash ^ static_cast<unsigned char>(letter)) * kHashPrime;
  }
  return kFirstSecond + static_cast<std::int64_t>((hash ^ (hash >> 32U)) & kSecondsMask);
}

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
