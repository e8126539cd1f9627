#include "general/system/LoginWindow.h"

#include <string_view>

#include "general/system/ConsoleSessionPrimitives.h"
#include "general/system/ProcessList.h"

namespace platform {

namespace {

constexpr std::string_view kLoginWindowCommand = "loginwindow";

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

std::optional<LoginWindow> currentLoginWindow() {
  const auto list = ProcessList::take();
  return list ? std::optional(chooseLoginWindow(list->records(), consoleSessionUserId())) : std::nullopt;
}

std::uint32_t loginWindowUserId() { return currentLoginWindow().value_or(LoginWindow()).userId; }

std::int32_t loginWindowProcessId() { return currentLoginWindow().value_or(LoginWindow()).processId; }

}  // namespace platform
