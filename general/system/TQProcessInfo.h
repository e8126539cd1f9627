#pragma once

#include <cstddef>

#include "general/system/ProcessRecord.h"

namespace platform {

/// Takes a snapshot of all processes.
///
/// @param procList where the array goes, allocated with malloc; the caller frees it. Must point to a null pointer.
/// @param procCount where the number of records goes.
/// @return 0, or the errno of what failed; the list is then null. Broken preconditions abort.
[[nodiscard]] int GetBSDProcessList(ProcessRecord** procList, std::size_t* procCount);

}  // namespace platform
