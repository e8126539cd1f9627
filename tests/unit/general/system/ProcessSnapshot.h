#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>

#include "general/system/ProcessTable.h"
#include "general/system/TQProcessInfo.h"

namespace tests {

struct FreeRecords {
  void operator()(platform::ProcessRecord* records) const { std::free(records); }
};

/// A list of processes and what came of asking for it.
struct Snapshot {
  int error = -1;
  std::size_t count = 77;
  std::unique_ptr<platform::ProcessRecord, FreeRecords> records;

  [[nodiscard]] std::map<std::int32_t, platform::ProcessRecord> byId() const {
    std::map<std::int32_t, platform::ProcessRecord> sorted;
    for (std::size_t i = 0; i < count; ++i) {
      sorted.emplace(records.get()[i].processId, records.get()[i]);
    }
    return sorted;
  }
};

inline Snapshot copyOf(platform::ProcessTable& table) {
  Snapshot snapshot;
  platform::ProcessRecord* list = nullptr;
  snapshot.error = platform::copyProcessTable(table, &list, &snapshot.count);
  snapshot.records.reset(list);
  return snapshot;
}

inline Snapshot systemSnapshot() {
  Snapshot snapshot;
  platform::ProcessRecord* list = nullptr;
  snapshot.error = platform::GetBSDProcessList(&list, &snapshot.count);
  snapshot.records.reset(list);
  return snapshot;
}

}  // namespace tests
