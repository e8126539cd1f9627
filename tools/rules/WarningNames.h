#pragma once

#include <algorithm>
#include <array>
#include <string_view>

/// The names of warnings: printed with them, and what a description silences them by.
namespace bundletool {

inline constexpr std::string_view kWarnBuilderOwnsEverything = "builder-owns-everything";
inline constexpr std::string_view kWarnSecretsInReceipts = "secrets-in-receipts";
inline constexpr std::string_view kWarnUnlistedServices = "unlisted-services";

inline constexpr std::array kWarningNames{kWarnBuilderOwnsEverything, kWarnSecretsInReceipts, kWarnUnlistedServices};

[[nodiscard]] constexpr bool isWarningName(std::string_view name) {
  return std::ranges::find(kWarningNames, name) != kWarningNames.end();
}

}  // namespace bundletool
