#pragma once

#include <string>
#include <vector>

namespace deployer {

/// The whole process behind main(): log, command line, rights, run. Returns the exit code. Call it once, on the main
/// thread, before any other thread exists.
/// @param arguments the argument vector, the executable's path first.
[[nodiscard]] int installationDeployerMain(const std::vector<std::string>& arguments);

}  // namespace deployer
