#include "general/foundation/extensions/NSXMLElementExtensions.h"

namespace foundation::NSXMLElementExtensions {

void addChildren(XMLElement& element, std::span<const XMLNode> children) {
  for (const XMLNode& child : children) {
    element.addChild(child);
  }
}

}  // namespace foundation::NSXMLElementExtensions
