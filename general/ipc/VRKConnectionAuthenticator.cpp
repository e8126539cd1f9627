#include "general/ipc/VRKConnectionAuthenticator.h"

#include <algorithm>

#include "general/system/SystemProfile.h"

namespace ipc {

std::vector<std::byte> VRKConnectionAuthenticator::authenticationDataForComponents(
    std::span<const std::byte> /*components*/) {
  // The boot does not change while a process lives, and every message needs this.
  static const platform::ProfileData data = platform::clientProfileData();
  return {data.begin(), data.end()};
}

bool VRKConnectionAuthenticator::authenticateComponents(std::span<const std::byte> /*components*/,
                                                        std::span<const std::byte> data) {
  static const platform::ProfileData expected = platform::systemProfileData();
  return std::ranges::equal(data, expected);
}

}  // namespace ipc
