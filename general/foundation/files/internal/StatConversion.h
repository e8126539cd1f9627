#pragma once

#include <sys/stat.h>

#include "general/foundation/files/FileAttributes.h"

namespace foundation {

/// The attributes in what the system says of an item. For the sources of this folder.
[[nodiscard]] ItemStatus attributesFrom(const struct stat& item);

}  // namespace foundation
