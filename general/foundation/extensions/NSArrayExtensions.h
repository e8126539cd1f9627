#pragma once

#include <string_view>
#include <vector>

#include "general/foundation/propertylist/PropertyList.h"

namespace foundation::NSArrayExtensions {

/// The value at the key path ("a.b.c") of each element of an array, in order. A key asked of an array gives the array
/// of its elements' values. Throws std::invalid_argument when an element has no such value: nothing cannot be stored.
[[nodiscard]] std::vector<PropertyList> objectsForKeyPath(const PropertyList& array, std::string_view keyPath);

}  // namespace foundation::NSArrayExtensions
