#include "general/system/ProcessTablePrimitives.h"

#include <sys/sysctl.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <string_view>

namespace platform {

namespace {

class KernelProcessTable : public ProcessTable {
 public:
  int size(std::size_t* count) override {
    std::size_t bytes = 0;
    if (sysctl(name_, 3, nullptr, &bytes, nullptr, 0) != 0) {
      return errno;
    }
    *count = bytes / sizeof(kinfo_proc);
    return 0;
  }

  int read(std::span<ProcessRecord> room, std::size_t* count) override {
    const std::unique_ptr<kinfo_proc[]> processes(new (std::nothrow) kinfo_proc[room.size()]);
    if (processes == nullptr) {
      return EAGAIN;  // not ENOMEM, which asks for another try with more room
    }
    std::size_t bytes = room.size() * sizeof(kinfo_proc);
    if (sysctl(name_, 3, processes.get(), &bytes, nullptr, 0) != 0) {
      return errno;
    }
    *count = bytes / sizeof(kinfo_proc);
    std::transform(processes.get(), processes.get() + *count, room.begin(), [](const kinfo_proc& process) {
      ProcessRecord record{};
      const std::string_view command(process.kp_proc.p_comm);
      std::copy_n(command.begin(), std::min(command.size(), sizeof record.command - 1), std::begin(record.command));
      record.processId = process.kp_proc.p_pid;
      record.effectiveUserId = process.kp_eproc.e_ucred.cr_uid;
      return record;
    });
    return 0;
  }

 private:
  int name_[3] = {CTL_KERN, KERN_PROC, KERN_PROC_ALL};
};

}  // namespace

std::unique_ptr<ProcessTable> systemProcessTable() { return std::make_unique<KernelProcessTable>(); }

}  // namespace platform
