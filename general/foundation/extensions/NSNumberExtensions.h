#pragma once

#include <optional>
#include <string_view>

#include "general/foundation/propertylist/PropertyList.h"

namespace foundation::NSNumberExtensions {

[[nodiscard]] PropertyList booleanTrue();
[[nodiscard]] PropertyList booleanFalse();
/// True for "true", "YES", "on" and "1" in any case, and for no text at all (comparing with nothing reports equality);
/// false for every other text.
[[nodiscard]] PropertyList booleanForStringValue(const std::optional<std::string_view>& text);

}  // namespace foundation::NSNumberExtensions
