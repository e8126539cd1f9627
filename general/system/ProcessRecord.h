#pragma once

#include <cstdint>

namespace platform {

/// One process as the kernel lists it.
struct ProcessRecord {
  char command[64];        ///< the command's name, cut to what the kernel keeps, ending in a NUL
  std::int32_t processId;  ///< always positive
  std::uint32_t effectiveUserId;
};

}  // namespace platform
