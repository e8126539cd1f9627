#pragma once

#include <string>
#include <string_view>

namespace platform {

/// The folder of the running program, from the name it was started by: the folder in that name, or the first one on the
/// search path that holds an executable of the name.
[[nodiscard]] std::string folderOfExecutable(std::string_view startedAs);

}  // namespace platform
