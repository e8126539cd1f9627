#pragma once

#include <string_view>

#include "general/foundation/propertylist/PropertyList.h"

namespace fuzzing {

/// Writes the value in both formats, reads both back and ends the program when either is another value.
void checkThatItIsReadBack(const foundation::PropertyList& value);

/// Reads a document that may be anything; what is read must survive being written.
void readPropertyList(std::string_view document);

}  // namespace fuzzing
