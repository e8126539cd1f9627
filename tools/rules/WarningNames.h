#pragma once

#include <algorithm>
#include <array>
#include <string_view>

/// The names of warnings: printed with them, and what a description silences them by.
namespace bundletool {

inline constexpr std::string_view kWarnAccessControlLists = "acls";
inline constexpr std::string_view kWarnBuilderOwnsEverything = "builder-owns-everything";
inline constexpr std::string_view kWarnExtendedAttributes = "extended-attributes";
inline constexpr std::string_view kWarnFileCapabilities = "file-capabilities";
inline constexpr std::string_view kWarnHardLinks = "hard-links";
inline constexpr std::string_view kWarnHoles = "holes";
inline constexpr std::string_view kWarnOwnReceipt = "own-receipt";
inline constexpr std::string_view kWarnSecretsInReceipts = "secrets-in-receipts";
inline constexpr std::string_view kWarnSetId = "set-id";
inline constexpr std::string_view kWarnSystemFolders = "system-folders";
inline constexpr std::string_view kWarnUnlistedServices = "unlisted-services";
inline constexpr std::string_view kWarnWritableByAll = "writable-by-all";

inline constexpr std::array kWarningNames{
    kWarnAccessControlLists,    kWarnExtendedAttributes, kWarnFileCapabilities,  kWarnHardLinks, kWarnHoles,
    kWarnBuilderOwnsEverything, kWarnOwnReceipt,         kWarnSecretsInReceipts, kWarnSetId,     kWarnSystemFolders,
    kWarnUnlistedServices,      kWarnWritableByAll};

[[nodiscard]] constexpr bool isWarningName(std::string_view name) {
  return std::ranges::find(kWarningNames, name) != kWarningNames.end();
}

}  // namespace bundletool
