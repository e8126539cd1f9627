#pragma once

#include <span>

#include "general/foundation/extensions/NSXMLNodeExtensions.h"

namespace foundation::NSXMLElementExtensions {

/// Adds each node as a child, in order.
void addChildren(XMLElement& element, std::span<const XMLNode> children);

}  // namespace foundation::NSXMLElementExtensions
