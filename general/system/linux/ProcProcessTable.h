#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "general/system/ProcessTable.h"

namespace platform {

/// The command's name from the text of /proc/PID/stat: what stands between the first "(" and the last ")", since a name
/// may hold anything.
[[nodiscard]] std::optional<std::string_view> commandInStat(std::string_view stat);
/// The number of the process's parent from the same text.
[[nodiscard]] std::optional<int> parentInStat(std::string_view stat);
/// The effective user id from the text of /proc/PID/status.
[[nodiscard]] std::optional<std::uint32_t> effectiveUserIdInStatus(std::string_view status);

/// The process table as a mounted proc file system shows it. A process that ends meanwhile is left out; one whose files
/// cannot be read for another reason makes the whole list fail, for it may be the one that is looked for.
class ProcProcessTable : public ProcessTable {
 public:
  /// @param directory where it is mounted.
  explicit ProcProcessTable(std::string directory) : directory_(std::move(directory)) {}

  [[nodiscard]] int size(std::size_t* count) override;
  [[nodiscard]] int read(std::span<ProcessRecord> room, std::size_t* count) override;

 private:
  std::string directory_;
};

}  // namespace platform
