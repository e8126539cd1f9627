#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// Whether the path of a file entry can name an item below a root: it names something, it does not climb, and each of
/// its components can be a name. The root itself can be named as "/" alone.
[[nodiscard]] bool isUsablePath(std::string_view path);

/// Where the item of a file entry lies once it is installed: an absolute and standardized path. Nothing when the
/// entry's path is missing, no text, relative or otherwise unusable.
[[nodiscard]] std::optional<std::string> installedPathOf(const foundation::PropertyList& entry);

}  // namespace deployer
