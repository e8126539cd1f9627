#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "InstallationDeployer/QVNInstallConfiguration.h"

namespace deployer {

/// The argument after the one at `index`, which moves on to it; nothing, and the index as it was, after the last one.
[[nodiscard]] std::optional<std::string> getNextStringArgument(const std::vector<std::string>& arguments,
                                                               std::size_t& index);
/// As getNextStringArgument; a relative path is made absolute by the current directory.
[[nodiscard]] std::optional<std::string> getNextPathArgument(const std::vector<std::string>& arguments,
                                                             std::size_t& index);

/// Reads the options behind the executable's path into the configuration.
/// @return nothing when they ask for a valid run, else the exit code with which the process ends after the usage text.
[[nodiscard]] std::optional<int> parseCommandLine(const std::vector<std::string>& arguments,
                                                  QVNInstallConfiguration& configuration);

}  // namespace deployer
