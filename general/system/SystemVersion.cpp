#include "general/system/SystemVersion.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "general/foundation/propertylist/PropertyListFile.h"

namespace platform {

namespace {

constexpr const char* kVersionFile = "/System/Library/CoreServices/SystemVersion.plist";
constexpr std::string_view kProductVersionKey = "ProductVersion";
constexpr int kLastPackedWithoutNumbers = 0x103F;
constexpr int kHighestDigit = 9;
constexpr int kHighestNumber = 99;

std::optional<int> takeNumber(std::string_view& text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || number < 0) {
    return std::nullopt;
  }
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

}  // namespace

std::optional<SystemVersion> parseSystemVersion(std::string_view text) {
  std::array<int, 3> numbers{};
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    const auto number = takeNumber(text);
    if (!number) {
      return std::nullopt;
    }
    numbers[i] = *number;
    if (text.empty()) {
      return SystemVersion{numbers[0], numbers[1], numbers[2]};
    }
    if (text.front() != '.') {
      return std::nullopt;
    }
    text.remove_prefix(1);
  }
  return std::nullopt;
}

int packVersion(SystemVersion version) {
  const int major = std::clamp(version.major, 0, kHighestNumber);
  const int minor = std::clamp(version.minor, 0, kHighestDigit);
  const int bugFix = std::clamp(version.bugFix, 0, kHighestDigit);
  return (major / 10) * 0x1000 + (major % 10) * 0x100 + minor * 0x10 + bugFix;
}

SystemVersion unpackVersion(int packed) {
  const auto digit = [packed](unsigned int shift) {
    return static_cast<int>((static_cast<unsigned int>(packed) >> shift) & 0xFU);
  };
  return {digit(12) * 10 + digit(8), digit(4), digit(0)};
}

SystemVersion versionToReport(int packed, const std::optional<SystemVersion>& numbers) {
  return packed > kLastPackedWithoutNumbers ? numbers.value_or(kUnknownVersion) : unpackVersion(packed);
}

int kernelMajorFor(SystemVersion version) {
  constexpr int kFirstAfterTen = 11;
  constexpr int kFirstNamedByYear = 26;
  if (version.major < kFirstAfterTen) {
    return version.minor + 4;
  }
  return version.major < kFirstNamedByYear ? version.major + 9 : version.major - 1;
}

int kernelMajorInRelease(std::string_view release) { return takeNumber(release).value_or(0); }

std::optional<SystemVersion> systemVersionInFile(const std::string& path) {
  const auto content = foundation::plist::readDictionary(path);
  if (!content) {
    return content.error().isNoSuchFile() ? std::optional(kNewestKnownVersion) : std::nullopt;
  }
  return parseSystemVersion((*content)[kProductVersionKey].text());
}

std::optional<SystemVersion> installedSystemVersion() { return systemVersionInFile(kVersionFile); }

}  // namespace platform
