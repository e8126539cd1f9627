#pragma once

#include <cstdint>

namespace platform {

/// Questions about users. Never logs, never fails: what cannot be found out is false.
class WQHUserInfo {
 public:
  /// Whether the user belongs to the group "admin", as primary or further group.
  [[nodiscard]] static bool isMemberOfAdminForUid(std::uint32_t userId);
  /// The same for the process's real user id.
  [[nodiscard]] static bool isMemberOfAdmin();
};

}  // namespace platform
