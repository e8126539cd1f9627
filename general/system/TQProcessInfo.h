#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

/// One process as the kernel lists it.
struct ProcessRecord {
  char command[64];        ///< the command's name, cut to what the kernel keeps, ending in a NUL
  std::int32_t processId;  ///< always positive
  std::uint32_t effectiveUserId;
};

/// Takes a snapshot of all processes.
///
/// @param procList where the array goes, allocated with malloc; the caller frees it. Must point to a null pointer.
/// @param procCount where the number of records goes.
/// @return 0, or the errno of what failed; the list is then null. Broken preconditions abort.
[[nodiscard]] int GetBSDProcessList(ProcessRecord** procList, std::size_t* procCount);

}  // namespace platform
