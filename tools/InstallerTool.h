#pragma once

namespace bundletool {

/// The whole command. Results go to standard output, everything else to standard error. Answers the exit code.
[[nodiscard]] int runInstallerTool(int argumentCount, const char* const* arguments);

}  // namespace bundletool
