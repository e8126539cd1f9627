#include "fuzz/PropertyListFuzzing.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "general/foundation/propertylist/PropertyListFile.h"
#include "general/foundation/propertylist/TextFormat.h"

namespace fuzzing {

namespace {

using foundation::PropertyList;
using foundation::plist::Format;

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

// XML dates have no fractions of a second.
PropertyList withWholeSeconds(const PropertyList& value) {
  if (const auto seconds = value.secondsSince2001()) return PropertyList::date(std::floor(*seconds));
  if (value.isArray()) {
    PropertyList::Array elements;
    for (const PropertyList& element : value.elements()) elements.push_back(withWholeSeconds(element));
    return PropertyList(std::move(elements));
  }
  if (!value.isDictionary()) return value;
  std::vector<std::pair<std::string, PropertyList>> entries;
  for (const auto& [key, entry] : value.entries()) entries.emplace_back(key, withWholeSeconds(entry));
  return PropertyList::dictionary(std::move(entries));
}

}  // namespace

void checkThatItIsReadBack(const PropertyList& value) {
  const auto binary = foundation::plist::serialize(value, Format::Binary);
  require(binary.ok(), "a value that was read cannot be written in binary");
  const auto fromBinary = foundation::plist::parse(*binary);
  require(fromBinary.ok() && *fromBinary == value, "binary is read back as another value");

  const auto xml = foundation::plist::serialize(value, Format::Xml);
  if (!xml.ok()) return;
  const auto fromXml = foundation::plist::parse(*xml);
  require(fromXml.ok() && *fromXml == withWholeSeconds(value), "XML is read back as another value");
}

void readPropertyList(std::string_view document) {
  const auto value = foundation::plist::parse(document);
  if (!value.ok()) {
    require(!value.error().text.empty(), "an error without a text");
    return;
  }
  checkThatItIsReadBack(*value);
  require(!foundation::description(PropertyList(PropertyList::Array{*value})).empty(), "a value without a description");
}

}  // namespace fuzzing
