#pragma once

#include <string>
#include <string_view>

#include "general/foundation/Descriptor.h"

namespace frontend {

/// Where the log of engines that a front end starts is kept, run after run.
inline constexpr std::string_view kEngineLogFile = "/var/log/com.corvane.installer.log";
/// Opens the file for appending; only root can read it. Not open when this user may not write there, or when what lies
/// there is no file of this user's own. A file of `mostBytes` or more gives way to a new one first; so do engines while
/// they write to it, see logging::LogFile.
[[nodiscard]] foundation::Descriptor openLogFile(const std::string& path, std::size_t mostBytes);

}  // namespace frontend
