#include "general/system/ProcessTablePrimitives.h"

#include "general/system/linux/ProcProcessTable.h"

namespace platform {

std::unique_ptr<ProcessTable> systemProcessTable() { return std::make_unique<ProcProcessTable>("/proc"); }

}  // namespace platform
