#include "general/system/TQProcessInfo.h"

#include "general/system/ProcessTable.h"
#include "general/system/ProcessTablePrimitives.h"

namespace platform {

int GetBSDProcessList(ProcessRecord** procList, std::size_t* procCount) {
  return copyProcessTable(*systemProcessTable(), procList, procCount);
}

}  // namespace platform
