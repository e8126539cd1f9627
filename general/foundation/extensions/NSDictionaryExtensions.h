#pragma once

#include <string_view>

#include "general/foundation/propertylist/PropertyList.h"

namespace foundation::NSDictionaryExtensions {

/// The boolean reading of a number or a text; false for a missing value and any other kind of value. A text is true
/// when, after leading white space, an optional sign and zeros, it begins with Y, y, T, t or a digit 1 to 9.
[[nodiscard]] bool boolForKey(const PropertyList& dictionary, std::string_view key);

}  // namespace foundation::NSDictionaryExtensions
