#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/building/BundleDescription.h"
#include "tools/building/InstallItem.h"
#include "tools/rules/Problem.h"

namespace bundletool {

/// What a staged folder holds, found without reading any file.
struct StagedFolder {
  std::vector<InstallItem> items;  ///< what will be recorded: system folders are left out
  std::uint64_t files = 0;         ///< regular files
  std::uint64_t bytes = 0;         ///< in them
};

/// Looks through the staged folder of a component for what cannot be installed.
[[nodiscard]] StagedFolder examineStagedFolder(const BundleDescription& description,
                                               const ComponentDescription& component, Problems& problems);

}  // namespace bundletool
