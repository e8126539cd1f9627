#include "general/system/linux/BootIdentity.h"

namespace platform {

namespace {

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

}  // namespace platform
