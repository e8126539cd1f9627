#include "general/foundation/ProcessStartPrimitives.h"

#include <libproc.h>

namespace foundation {

std::optional<std::uint64_t> startOfProcess(pid_t process) {
  constexpr std::uint64_t kMicrosecondsOfASecond = 1'000'000;
  proc_bsdinfo info{};
  const int size = static_cast<int>(sizeof info);
  if (proc_pidinfo(process, PROC_PIDTBSDINFO, 0, &info, size) != size) {
    return std::nullopt;
  }
  return info.pbi_start_tvsec * kMicrosecondsOfASecond + info.pbi_start_tvusec;
}

}  // namespace foundation
