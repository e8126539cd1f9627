#include "general/system/LoginWindow.h"

#include <cstdlib>
#include <memory>
#include <string_view>

#include "general/system/ConsoleSessionPrimitives.h"

namespace platform {

namespace {

constexpr std::string_view kLoginWindowCommand = "loginwindow";

struct FreeRecords {
  void operator()(ProcessRecord* records) const { std::free(records); }
};

LoginWindow currentLoginWindow() {
  ProcessRecord* list = nullptr;
  std::size_t count = 0;
  if (GetBSDProcessList(&list, &count) != 0) {
    return {};
  }
  const std::unique_ptr<ProcessRecord, FreeRecords> records(list);
  return chooseLoginWindow({records.get(), count}, consoleSessionUserId());
}

}  // namespace

LoginWindow chooseLoginWindow(std::span<const ProcessRecord> records, std::optional<std::uint32_t> consoleUserId) {
  const std::uint32_t sessionUser = consoleUserId.value_or(0);
  LoginWindow newest;
  for (const ProcessRecord& record : records) {
    if (record.command != kLoginWindowCommand || record.effectiveUserId == 0) {
      continue;
    }
    if (sessionUser != 0 && record.effectiveUserId == sessionUser) {
      return {record.effectiveUserId, record.processId};
    }
    if (sessionUser == 0 && record.processId > newest.processId) {
      newest = {record.effectiveUserId, record.processId};
    }
  }
  return newest;
}

std::uint32_t loginWindowUserId() { return currentLoginWindow().userId; }

std::int32_t loginWindowProcessId() { return currentLoginWindow().processId; }

}  // namespace platform
