#pragma once

#include <string>

#include "general/foundation/Descriptor.h"
#include "general/foundation/Result.h"

namespace foundation {

/// Opens the directory at an absolute path to change what lies in it, but not through a link that somebody else put
/// there, not even meanwhile (a symlink race): links on the way, and one at the end, are followed when they belong to
/// the effective user (as /var and its kin belong to root), and are an error otherwise. For the sources of this folder.
[[nodiscard]] Result<Descriptor> openGuardedFolder(const std::string& path);

}  // namespace foundation
