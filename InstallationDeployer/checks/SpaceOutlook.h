#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "InstallationDeployer/QVNInstallerManifest.h"

namespace deployer {

/// Less space than an install needs, in bytes.
struct SpaceShortage {
  std::int64_t required = 0;
  std::int64_t free = 0;  ///< with what the install itself would make free
};

/// Whether the system volume has room for an install, as the engine will count once it has removed what is replaced:
/// nothing when it has, or when that cannot be told. An install that would do with the space is never said to lack it,
/// so only components count that are certain to be installed.
/// @param products those that may be installed; it is enough when one of them has room.
[[nodiscard]] std::optional<SpaceShortage> spaceShortageFor(QVNInstallerManifest& bundle,
                                                            const std::vector<std::string>& products);

}  // namespace deployer
