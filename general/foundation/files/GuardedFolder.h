#pragma once

#include <sys/stat.h>

#include <string>

#include "general/foundation/Descriptor.h"
#include "general/foundation/Result.h"

namespace foundation {

/// Opens the directory at an absolute path to change what lies in it, but not through a link that somebody else put
/// there, not even meanwhile (a symlink race): links on the way, and one at the end, are followed when they belong to
/// the effective user (as /var and its kin belong to root), and are an error otherwise. For the sources of this folder.
[[nodiscard]] Result<Descriptor> openGuardedFolder(const std::string& path);

/// An item opened for reading.
struct GuardedItem {
  Descriptor item;
  struct stat target;  ///< of what was opened
  struct stat itself;  ///< of what lies at the path, a link itself
};

/// Opens the directory or regular file at an absolute path for reading, in the same way. Anything else is an error, and
/// is not waited for; so is a file of several names in a folder that others can write to.
[[nodiscard]] Result<GuardedItem> openGuardedItem(const std::string& path);

}  // namespace foundation
