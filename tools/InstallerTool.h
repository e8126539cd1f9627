#pragma once

namespace bundletool {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

/// The whole command. Results go to standard output, everything else to standard error. Answers the exit code.
[[nodiscard]] int runInstallerTool(int argumentCount, const char* const* arguments);

}  // namespace bundletool
