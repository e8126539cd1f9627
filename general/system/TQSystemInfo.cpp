#include "general/system/TQSystemInfo.h"

#include "general/system/SystemVersion.h"

namespace platform {

namespace {

// The first packed version of each release of 10.
constexpr int kCheetah = 0x1000;
constexpr int kPuma = 0x1010;
constexpr int kJaguar = 0x1020;
constexpr int kPanther = 0x1030;
constexpr int kTiger = 0x1040;
constexpr int kLeopard = 0x1050;
constexpr int kSnowLeopard = 0x1060;
constexpr int kLion = 0x1070;
constexpr int kMountainLion = 0x1080;

std::optional<int> packedVersion() {
  const auto version = installedSystemVersion();
  return version ? std::optional(packVersion(*version)) : std::nullopt;
}

SystemVersion reportedVersion() {
  const auto version = installedSystemVersion();
  return version ? versionToReport(packVersion(*version), version) : kUnknownVersion;
}

}  // namespace

foundation::PropertyList TQSystemInfo::systemVersion() {
  const SystemVersion version = reportedVersion();
  return foundation::PropertyList::dictionary(
      {{"Major", version.major}, {"Minor", version.minor}, {"BugFix", version.bugFix}});
}

std::string TQSystemInfo::systemVersionString() {
  const SystemVersion version = reportedVersion();
  return std::to_string(version.major) + "." + std::to_string(version.minor) + "." + std::to_string(version.bugFix);
}

bool TQSystemInfo::isVersionBetween(int low, int high) {
  const auto packed = packedVersion();
  return packed && low <= *packed && *packed < high;
}

bool TQSystemInfo::isVersionAtLeast(int version) {
  const auto packed = packedVersion();
  return packed && *packed >= version;
}

bool TQSystemInfo::isRunningCheetah() { return isVersionBetween(kCheetah, kPuma); }
bool TQSystemInfo::isRunningPuma() { return isVersionBetween(kPuma, kJaguar); }
bool TQSystemInfo::isRunningJaguar() { return isVersionBetween(kJaguar, kPanther); }
bool TQSystemInfo::isRunningPanther() { return isVersionBetween(kPanther, kTiger); }
bool TQSystemInfo::isRunningTiger() { return isVersionBetween(kTiger, kLeopard); }
bool TQSystemInfo::isRunningLeopard() { return isVersionBetween(kLeopard, kSnowLeopard); }
bool TQSystemInfo::isRunningSnowLeopard() { return isVersionBetween(kSnowLeopard, kLion); }
bool TQSystemInfo::isRunningLion() { return isVersionBetween(kLion, kMountainLion); }
bool TQSystemInfo::isAtLeastRunningSnowLeopard() { return isVersionAtLeast(kSnowLeopard); }
bool TQSystemInfo::isAtLeastRunningLeopard() { return isVersionAtLeast(kLeopard); }

}  // namespace platform
