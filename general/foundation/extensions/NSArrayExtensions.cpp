#include "general/foundation/extensions/NSArrayExtensions.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace foundation::NSArrayExtensions {

namespace {

PropertyList stored(PropertyList value, std::string_view key) {
  if (value.isNil()) {
    throw std::invalid_argument("an element has no value for the key path " + std::string(key));
  }
  return value;
}

// Arrays are nested no deeper than a property list can be, but this one may have been made in memory: the depth is
// bounded here as well.
constexpr int kDeepestArray = 512;

PropertyList valueForKey(const PropertyList& object, std::string_view key, int depth = 0) {
  if (!object.isArray()) {
    return object[key];
  }
  if (depth == kDeepestArray) {
    throw std::invalid_argument("arrays are nested too deep for the key " + std::string(key));
  }
  PropertyList::Array values;
  values.reserve(object.count());
  for (const PropertyList& element : object.elements()) {
    values.push_back(stored(valueForKey(element, key, depth + 1), key));
  }
  return values;
}

PropertyList valueForKeyPath(PropertyList object, std::string_view keyPath) {
  std::size_t position = 0;
  while (position <= keyPath.size()) {
    const std::size_t end = std::min(keyPath.find('.', position), keyPath.size());
    object = valueForKey(object, keyPath.substr(position, end - position));
    position = end + 1;
  }
  return object;
}

}  // namespace

std::vector<PropertyList> objectsForKeyPath(const PropertyList& array, std::string_view keyPath) {
  std::vector<PropertyList> objects;
  objects.reserve(array.count());
  for (const PropertyList& element : array.elements()) {
    objects.push_back(stored(valueForKeyPath(element, keyPath), keyPath));
  }
  return objects;
}

}  // namespace foundation::NSArrayExtensions
