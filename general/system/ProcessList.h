#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>

#include "general/system/ProcessRecord.h"
#include "general/system/TQProcessInfo.h"

namespace platform {

/// All processes as they were at one moment; owns what GetBSDProcessList() allocates.
class ProcessList {
 public:
  /// Takes the snapshot; nothing, with errno set, when the system does not give one.
  [[nodiscard]] static std::optional<ProcessList> take() {
    ProcessRecord* records = nullptr;
    std::size_t count = 0;
    if (const int error = GetBSDProcessList(&records, &count); error != 0) {
      errno = error;
      return std::nullopt;
    }
    return ProcessList(records, count);
  }

  /// Valid as long as the list.
  [[nodiscard]] std::span<const ProcessRecord> records() const { return {records_.get(), count_}; }

 private:
  struct Free {
    void operator()(ProcessRecord* records) const { std::free(records); }
  };

  ProcessList(ProcessRecord* records, std::size_t count) : records_(records), count_(count) {}

  std::unique_ptr<ProcessRecord, Free> records_;
  std::size_t count_;
};

}  // namespace platform
