#pragma once

#include <string>

#include "InstallationDeployer/FileEntry.h"

namespace deployer {

enum class LinkOutcome {
  Made,
  Failed,      ///< the other links of the component are made all the same
  NotRemoved,  ///< what is in the link's place could not be removed
};

/// Makes the symbolic link of an entry, with its own owner, group and permissions, in the place of what its name leads
/// to. Logs what fails.
/// @param destination the root that the entry's path is appended to.
[[nodiscard]] LinkOutcome installLink(const FileEntry& entry, const std::string& destination);

}  // namespace deployer
