#pragma once

#include <cstddef>
#include <span>

#include "general/system/ProcessRecord.h"

namespace platform {

/// The kernel's table of processes, which grows and shrinks while one looks at it.
class ProcessTable {
 public:
  virtual ~ProcessTable() = default;
  /// How many records there are now. @return 0 or an errno.
  [[nodiscard]] virtual int size(std::size_t* count) = 0;
  /// Fills the room with a snapshot. @return 0, ENOMEM when the room does not hold all, or another errno.
  [[nodiscard]] virtual int read(std::span<ProcessRecord> room, std::size_t* count) = 0;
};

/// A snapshot in memory from malloc, taken again until it fits. Contract as for GetBSDProcessList.
[[nodiscard]] int copyProcessTable(ProcessTable& table, ProcessRecord** procList, std::size_t* procCount);

}  // namespace platform
