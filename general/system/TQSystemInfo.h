#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "general/foundation/propertylist/PropertyList.h"

namespace platform {

/// The version of the running system, as 10.m.b counts it.
class TQSystemInfo {
 public:
  /// "Major", "Minor" and "BugFix"; 10, 0, 0 when the system does not say.
  [[nodiscard]] static foundation::PropertyList systemVersion();
  /// "Major.Minor.BugFix".
  [[nodiscard]] static std::string systemVersionString();
  /// Whether low <= packed version < high; false when the system does not say. Packed: 0x1068 is 10.6.8.
  [[nodiscard]] static bool isVersionBetween(int low, int high);
  [[nodiscard]] static bool isVersionAtLeast(int version);
  [[nodiscard]] static bool isRunningCheetah();
  [[nodiscard]] static bool isRunningPuma();
  [[nodiscard]] static bool isRunningJaguar();
  [[nodiscard]] static bool isRunningPanther();
  [[nodiscard]] static bool isRunningTiger();
  [[nodiscard]] static bool isRunningLeopard();
  [[nodiscard]] static bool isRunningSnowLeopard();
  [[nodiscard]] static bool isRunningLion();
  [[nodiscard]] static bool isAtLeastRunningSnowLeopard();
  [[nodiscard]] static bool isAtLeastRunningLeopard();
};

}  // namespace platform
