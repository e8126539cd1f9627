#include "general/system/ProcessTable.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace platform {

namespace {

constexpr std::size_t kMostRecords = std::numeric_limits<std::size_t>::max() / sizeof(ProcessRecord);

/// Like assert, but in every build: a caller that breaks these would leak or corrupt memory.
void require(bool holds, const char* condition) {
  if (!holds) {
    std::fprintf(stderr, "Assertion failed: (%s), function GetBSDProcessList\n", condition);
    std::abort();
  }
}

int readUntilItFits(ProcessTable& table, ProcessRecord** procList, std::size_t* procCount) {
  while (true) {
    std::size_t expected = 0;
    if (const int error = table.size(&expected); error != 0) {
      return error;
    }
    // An empty table is a list too, so there is always something to point to.
    const std::size_t room = std::max<std::size_t>(expected, 1);
    if (room > kMostRecords) {
      return ENOMEM;
    }
    auto* const records = static_cast<ProcessRecord*>(std::calloc(room, sizeof(ProcessRecord)));
    if (records == nullptr) {
      return ENOMEM;
    }
    const int error = table.read({records, room}, procCount);
    if (error == 0) {
      *procList = records;
      return 0;
    }
    std::free(records);
    *procCount = 0;
    if (error != ENOMEM) {
      return error;
    }
  }
}

}  // namespace

int copyProcessTable(ProcessTable& table, ProcessRecord** procList, std::size_t* procCount) {
  require(procList != nullptr, "procList != NULL");
  require(*procList == nullptr, "*procList == NULL");
  require(procCount != nullptr, "procCount != NULL");
  *procCount = 0;
  const int error = readUntilItFits(table, procList, procCount);
  require((error == 0) == (*procList != nullptr), "(err == 0) == (*procList != NULL)");
  return error;
}

}  // namespace platform
