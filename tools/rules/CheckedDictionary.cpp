#include "tools/rules/CheckedDictionary.h"

#include <algorithm>
#include <utility>

#include "general/foundation/propertylist/PropertyListFile.h"
#include "general/foundation/propertylist/TextFormat.h"

namespace bundletool {

using foundation::PropertyList;

namespace {

constexpr std::string_view kTextType = "a string that is not empty";
constexpr std::string_view kArgumentType = "a string";

bool isArgument(const PropertyList& value) {
  return value.isString() && value.text().find('\0') == std::string_view::npos;
}

}  // namespace

bool isUsableText(const PropertyList& value) { return isArgument(value) && !value.text().empty(); }

std::string elementKey(std::string_view key, std::size_t index) {
  return foundation::format("%@[%lu]", key, static_cast<std::uint64_t>(index));
}

CheckedDictionary::CheckedDictionary(std::string file, std::string keyPath, PropertyList value, Problems& problems)
    : file_(std::move(file)), keyPath_(std::move(keyPath)), value_(std::move(value)), problems_(&problems) {}

std::optional<CheckedDictionary> CheckedDictionary::fromFile(const std::string& path, std::string_view role,
                                                             Problems& problems) {
  auto content = foundation::plist::readDictionary(path);
  if (!content) {
    const bool missing = content.error().isNoSuchFile();
    problems.error(
        {path, "",
         missing ? foundation::format("%@ is missing", role)
                 : foundation::format("%@ cannot be read: %@", role, content.error().text),
         missing ? "create it or correct the path" : "make it a property list with a dictionary at the top"});
    return std::nullopt;
  }
  return CheckedDictionary(path, "", std::move(content).value(), problems);
}

void CheckedDictionary::allowOnly(std::initializer_list<std::string_view> keys) const {
  for (const PropertyList::Entry& entry : value_.entries()) {
    if (std::ranges::find(keys, entry.key) == keys.end()) {
      std::string known;
      for (const std::string_view key : keys) {
        known += (known.empty() ? "" : ", ") + std::string(key);
      }
      refuse(entry.key, "the key is unknown", "remove it, or use one of " + known);
    }
  }
}

std::optional<std::string> CheckedDictionary::string(std::string_view key, Need need) const {
  const PropertyList* const found = lookUp(key, need, kTextType);
  if (found == nullptr) {
    return std::nullopt;
  }
  if (!isUsableText(*found)) {
    refuseType(keyPath(key), kTextType);
    return std::nullopt;
  }
  return std::string(found->text());
}

std::optional<bool> CheckedDictionary::boolean(std::string_view key) const {
  const PropertyList* const found = lookUp(key, Need::Optional, "a Boolean");
  if (found != nullptr && !found->boolean()) {
    refuseType(keyPath(key), "a Boolean");
    return std::nullopt;
  }
  return found != nullptr ? found->boolean() : std::nullopt;
}

std::optional<std::uint64_t> CheckedDictionary::number(std::string_view key, std::uint64_t largest) const {
  const std::string typeName = foundation::format("a whole number from 0 to %llu", largest);
  const PropertyList* const found = lookUp(key, Need::Optional, typeName);
  if (found == nullptr) {
    return std::nullopt;
  }
  const auto number = found->integer();
  if (found->type() != PropertyList::Type::Integer || found->isLargeUnsigned() || !number || *number < 0 ||
      static_cast<std::uint64_t>(*number) > largest) {
    refuseType(keyPath(key), typeName);
    return std::nullopt;
  }
  return static_cast<std::uint64_t>(*number);
}

std::vector<std::string> CheckedDictionary::strings(std::string_view key, Need need) const {
  return texts(key, need, &isUsableText, kTextType);
}

std::vector<std::string> CheckedDictionary::arguments(std::string_view key) const {
  return texts(key, Need::Optional, &isArgument, kArgumentType);
}

std::vector<std::string> CheckedDictionary::texts(std::string_view key, Need need,
                                                  bool (*isUsable)(const PropertyList&), std::string_view type) const {
  std::vector<std::string> found;
  const auto list = array(key, need);
  if (!list) {
    return found;
  }
  const auto elements = list->elements();
  found.reserve(elements.size());
  for (std::size_t index = 0; index < elements.size(); ++index) {
    if (isUsable(elements[index])) {
      found.emplace_back(elements[index].text());
    } else {
      refuseType(elementKey(keyPath(key), index), type);
    }
  }
  return found;
}

std::vector<CheckedDictionary> CheckedDictionary::dictionaries(std::string_view key, Need need) const {
  std::vector<CheckedDictionary> result;
  const auto found = array(key, need);
  if (!found) {
    return result;
  }
  const auto elements = found->elements();
  result.reserve(elements.size());
  for (std::size_t index = 0; index < elements.size(); ++index) {
    if (elements[index].isDictionary()) {
      result.emplace_back(file_, elementKey(keyPath(key), index), elements[index], *problems_);
    } else {
      refuseType(elementKey(keyPath(key), index), "a dictionary");
    }
  }
  return result;
}

std::optional<CheckedDictionary> CheckedDictionary::dictionary(std::string_view key, Need need) const {
  const PropertyList* const found = lookUp(key, need, "a dictionary");
  if (found == nullptr) {
    return std::nullopt;
  }
  if (!found->isDictionary()) {
    refuseType(keyPath(key), "a dictionary");
    return std::nullopt;
  }
  return CheckedDictionary(file_, keyPath(key), *found, *problems_);
}

std::optional<PropertyList> CheckedDictionary::array(std::string_view key, Need need) const {
  const PropertyList* const found = lookUp(key, need, "an array");
  if (found == nullptr) {
    return std::nullopt;
  }
  if (!found->isArray()) {
    refuseType(keyPath(key), "an array");
    return std::nullopt;
  }
  return *found;
}

std::string CheckedDictionary::keyPath(std::string_view key) const {
  if (key.empty()) {
    return keyPath_;
  }
  return keyPath_.empty() ? std::string(key) : keyPath_ + "." + std::string(key);
}

void CheckedDictionary::refuse(std::string_view key, std::string what, std::string advice) const {
  problems_->error({file_, keyPath(key), std::move(what), std::move(advice)});
}

bool CheckedDictionary::refuseIf(const std::optional<std::string>& fault, std::string_view key,
                                 std::string advice) const {
  if (fault) {
    refuse(key, *fault, std::move(advice));
  }
  return fault.has_value();
}

const PropertyList* CheckedDictionary::lookUp(std::string_view key, Need need, std::string_view typeName) const {
  const PropertyList& found = value_[key];
  if (!found.isNil()) {
    return &found;
  }
  if (need == Need::Required) {
    refuse(key, "the key is missing", foundation::format("add it with %@", typeName));
  }
  return nullptr;
}

void CheckedDictionary::refuseType(const std::string& keyPath, std::string_view typeName) const {
  problems_->error({file_, keyPath, "the value is of the wrong kind", foundation::format("give %@", typeName)});
}

}  // namespace bundletool
