#pragma once

#include <string>

namespace deployer {

/// What the command line looks like, line by line.
[[nodiscard]] std::string usageText();
/// Writes the usage text to standard error and logs that the launch failed.
void usage();

}  // namespace deployer
