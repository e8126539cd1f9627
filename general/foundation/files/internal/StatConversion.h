#pragma once

#include <sys/stat.h>

#include "general/foundation/files/ItemStatus.h"

namespace foundation {

/// What the system says of an item, in our words. For the sources of this folder.
[[nodiscard]] ItemStatus statusFrom(const struct stat& item);

}  // namespace foundation
