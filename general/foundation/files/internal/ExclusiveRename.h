#pragma once

#include <string>

namespace foundation {

/// Renames an item on one file system unless the new name is taken (EEXIST). For the sources of this folder.
/// @return 0, or -1 with errno set.
int renameWithoutReplacing(const std::string& from, const std::string& to);

}  // namespace foundation
