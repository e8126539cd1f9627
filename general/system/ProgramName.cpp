#include "general/system/ProgramName.h"

#include <algorithm>

#include "general/system/ProcessList.h"

namespace platform {

std::optional<std::string> programNameOf(int processIdentifier) {
  const auto list = ProcessList::take();
  if (!list) {
    return std::nullopt;
  }
  const auto found = std::ranges::find(list->records(), processIdentifier, &ProcessRecord::processId);
  return found == list->records().end() ? std::nullopt : std::optional<std::string>(found->command);
}

}  // namespace platform
