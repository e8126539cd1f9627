#include "general/ipc/VRKConnectionAuthenticator.h"

#include <algorithm>

#include "general/system/SystemProfile.h"

namespace ipc {

VRKConnectionAuthenticator::VRKConnectionAuthenticator() {
  // Asked now: peers could use up the descriptors that it takes to ask the system.
  static_cast<void>(platform::systemProfileData());
}

std::vector<std::byte> VRKConnectionAuthenticator::authenticationDataForComponents(
    std::span<const std::byte> /*components*/) {
  const platform::ProfileData shown = platform::clientProfileData();
  return {shown.begin(), shown.end()};
}

bool VRKConnectionAuthenticator::authenticateComponents(std::span<const std::byte> /*components*/,
                                                        std::span<const std::byte> data) {
  return std::ranges::equal(data, platform::systemProfileData());
}

}  // namespace ipc
