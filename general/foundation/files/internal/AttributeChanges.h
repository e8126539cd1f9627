#pragma once

#include <string>

#include "general/foundation/files/FileAttributes.h"

/// Changing attributes of items by their paths, which hold no NUL; for the sources of this folder. Absent attributes
/// are left as they are. Every function gives -1 and sets errno when it fails.
namespace foundation::attribute_changes {

/// Follows links of the effective user only: EPERM for a link of anybody else.
int change(const std::string& path, const FileAttributes& attributes);
/// Changes a link itself; its permissions only where links have any.
int changeLink(const std::string& path, const FileAttributes& attributes);

}  // namespace foundation::attribute_changes
