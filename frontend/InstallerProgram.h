#pragma once

namespace frontend {

/// The command `Installer`; gives its exit code.
[[nodiscard]] int runInstaller(int argumentCount, const char* const* arguments);

}  // namespace frontend
