#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace deployer {

/// What file browsers leave in the folders they show. It is nobody's, and no folder stays for it.
inline constexpr std::string_view kFileBrowserItemName = ".DS_Store";

/// Whether a folder in which these names stand holds nothing that anybody would miss.
[[nodiscard]] inline bool isAsGoodAsEmpty(const std::vector<std::string>& names) {
  return names.empty() || (names.size() == 1 && names.front() == kFileBrowserItemName);
}

}  // namespace deployer
