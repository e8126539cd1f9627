#pragma once

#include <string>

#include "InstallationDeployer/checks/BundleCheck.h"

namespace frontend {

/// What is wrong with a bundle, for people: a line for each problem that is known, with both checksums on lines of
/// their own, and how many more there are. Safe to print on a terminal.
[[nodiscard]] std::string problemsText(const deployer::BundleReport& report);

}  // namespace frontend
