#pragma once

#include <string>
#include <string_view>

#include "general/foundation/Descriptor.h"

namespace frontend {

/// Where the log of engines that a front end starts is kept, run after run.
inline constexpr std::string_view kEngineLogFile = "/var/log/com.corvane.installer.log";
/// What it was before it grew too big.
inline constexpr std::string_view kEarlierLogSuffix = ".1";

/// Opens the file for appending; only root can read it. Not open when this user may not write there, or when what lies
/// there is no file of this user's own. A file of `mostBytes` or more gives way to a new one first.
[[nodiscard]] foundation::Descriptor openLogFile(const std::string& path, std::size_t mostBytes);

}  // namespace frontend
