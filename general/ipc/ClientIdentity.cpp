#include "general/ipc/ClientIdentity.h"

#include <algorithm>

#include "general/system/SystemProfile.h"

namespace ipc {

// The boot does not change while a process lives, and every message needs these.

std::vector<std::byte> ClientIdentity::authenticationDataForComponents(std::span<const std::byte> /*components*/) {
  static const platform::ProfileData shown = platform::systemProfileData();
  return {shown.begin(), shown.end()};
}

bool ClientIdentity::authenticateComponents(std::span<const std::byte> /*components*/,
                                            std::span<const std::byte> data) {
  static const platform::ProfileData expected = platform::clientProfileData();
  return std::ranges::equal(data, expected);
}

}  // namespace ipc
