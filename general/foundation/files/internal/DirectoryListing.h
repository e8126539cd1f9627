#pragma once

#include <string>
#include <vector>

namespace foundation {

/// Appends the names in an open directory, without "." and "..", in the order in which the system has them. For the
/// sources of this folder.
/// @return 0, or -1 with errno set.
int listDirectory(int directory, std::vector<std::string>& names);

}  // namespace foundation
