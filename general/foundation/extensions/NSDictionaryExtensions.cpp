#include "general/foundation/extensions/NSDictionaryExtensions.h"

namespace foundation::NSDictionaryExtensions {

namespace {

bool boolValue(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t\n\v\f\r");
  if (start == std::string_view::npos) return false;
  text.remove_prefix(start);
  if (text.front() == '+' || text.front() == '-') text.remove_prefix(1);
  const std::size_t deciding = text.find_first_not_of('0');
  if (deciding == std::string_view::npos) return false;
  return std::string_view("YyTt123456789").find(text[deciding]) != std::string_view::npos;
}

}  // namespace

bool boolForKey(const PropertyList& dictionary, std::string_view key) {
  const PropertyList& value = dictionary[key];
  if (value.isNumber()) return value.real() != 0.0;
  return boolValue(value.text());
}

}  // namespace foundation::NSDictionaryExtensions
