#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// A release of the system.
struct SystemVersion {
  int major = 0;
  int minor = 0;
  int bugFix = 0;
  friend bool operator==(const SystemVersion&, const SystemVersion&) = default;
};

/// What a machine counts as that does not carry a version of its own: the newest release known.
inline constexpr SystemVersion kNewestKnownVersion{15, 7, 2};
/// What is reported when the system does not say.
inline constexpr SystemVersion kUnknownVersion{10, 0, 0};

/// "10.8.5", "11.0" or "12"; nothing for any other text.
[[nodiscard]] std::optional<SystemVersion> parseSystemVersion(std::string_view text);

/// The version in the packed form in which versions are compared: two binary-coded digits of major and one each of
/// minor and bug fix, that stop at 9. 10.6.8 is 0x1068.
[[nodiscard]] int packVersion(SystemVersion version);
[[nodiscard]] SystemVersion unpackVersion(int packed);
/// The version to report: packed forms before 10.4 say all there is, later ones lose digits and the three numbers that
/// the system gives besides count; without those the version is unknown.
[[nodiscard]] SystemVersion versionToReport(int packed, const std::optional<SystemVersion>& numbers);

/// The major release number of the kernel that belongs to a version: 12 for 10.8, 20 for 11.
[[nodiscard]] int kernelMajorFor(SystemVersion version);
/// The first field of a kernel release such as "12.5.0"; 0 when that is no number.
[[nodiscard]] int kernelMajorInRelease(std::string_view release);

/// The version that a system's version file gives. The newest known where there is no such file; nothing when it does
/// not hold one.
[[nodiscard]] std::optional<SystemVersion> systemVersionInFile(const std::string& path);

/// The running system's version; nothing when the system does not say.
[[nodiscard]] std::optional<SystemVersion> installedSystemVersion();

}  // namespace platform
