#pragma once

namespace bundletool {

// How `installer-tool` ends.
inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;  ///< a bundle was not built, or is not as it has to be
inline constexpr int kExitUsage = 2;    ///< called wrongly

}  // namespace bundletool
