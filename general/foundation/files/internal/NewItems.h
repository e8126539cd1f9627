#pragma once

#include <string>

#include "general/foundation/files/FileAttributes.h"

/// Making directories and links that show under their name only once they have their attributes; for the sources of
/// this folder. Paths end in no slash and hold no NUL. Every function gives -1 and sets errno when it fails; a name
/// that is taken is EEXIST.
namespace foundation::new_items {

/// Absent permissions are 0755.
int makeDirectory(const std::string& path, const FileAttributes& attributes);
/// The same with every parent that is missing; a directory that is there already is success and stays as it is.
int makeDirectories(const std::string& path, const FileAttributes& attributes);
int makeLink(const std::string& path, const std::string& target, const FileAttributes& attributes);

}  // namespace foundation::new_items
