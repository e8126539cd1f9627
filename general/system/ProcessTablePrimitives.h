#pragma once

#include <memory>

#include "general/system/ProcessTable.h"

namespace platform {

/// The running system's table. For TQProcessInfo only.
[[nodiscard]] std::unique_ptr<ProcessTable> systemProcessTable();

}  // namespace platform
