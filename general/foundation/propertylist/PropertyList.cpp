#include "general/foundation/propertylist/PropertyList.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <numeric>
#include <stdexcept>

#include "general/foundation/propertylist/PropertyListDocument.h"

namespace foundation {

namespace {

constexpr std::size_t kMaximumSize = (std::size_t{1} << 56) - 1;
constexpr double kTwoToThe63 = 9223372036854775808.0;
constexpr double kTwoToThe64 = 18446744073709551616.0;
// Up to here comparing lengths one after the other beats halving the range.
constexpr std::size_t kLinearSearchLimit = 16;

constinit const PropertyList kNil{};

std::int64_t saturated(double value) {
  if (std::isnan(value)) return 0;
  if (value >= kTwoToThe63) return std::numeric_limits<std::int64_t>::max();
  if (value < -kTwoToThe63) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(value);
}

std::uint64_t saturatedUnsigned(double value) {
  if (std::isnan(value) || value <= 0) return 0;
  if (value >= kTwoToThe64) return std::numeric_limits<std::uint64_t>::max();
  return static_cast<std::uint64_t>(value);
}

}  // namespace

// One value with storage of its own: this header, then the bytes, elements or entries (and after those their keys).
struct alignas(std::max_align_t) PropertyList::Node : PropertyList::Storage {
  Node(Kind nodeKind, std::size_t nodeCount) : Storage(nodeKind), count(nodeCount) {}

  static Node* make(Kind kind, std::size_t count, std::size_t elementSize, std::size_t extraBytes = 0) {
    if (count > kMaximumSize / elementSize || extraBytes > kMaximumSize) throw std::length_error("property list");
    void* memory = ::operator new(sizeof(Node) + count * elementSize + extraBytes);
    return new (memory) Node(kind, count);
  }
  static void destroy(Node* node) {
    node->~Node();
    ::operator delete(node);
  }

  std::byte* payload() { return reinterpret_cast<std::byte*>(this + 1); }
  std::span<PropertyList> elements() { return {reinterpret_cast<PropertyList*>(payload()), count}; }
  std::span<Entry> entries() { return {reinterpret_cast<Entry*>(payload()), count}; }

  const std::size_t count;
};

PropertyList::Content PropertyList::contentOf(Type type) {
  Content content;
  content.type = static_cast<std::uint64_t>(type) & 0x7F;
  return content;
}

PropertyList::Content PropertyList::contentOf(Type type, std::size_t size) {
  Content content = contentOf(type);
  content.size = size & kMaximumSize;
  return content;
}

PropertyList PropertyList::fromNode(Type type, Node* node, std::size_t size) {
  Content content = contentOf(type, size);
  content.bytes = node->payload();
  content.storage = node;
  return PropertyList(content);
}

PropertyList::PropertyList(bool value) : content_(PropertyListDocument::boolean(value)) {}
PropertyList::PropertyList(int value) : PropertyList(std::int64_t{value}) {}
PropertyList::PropertyList(std::int64_t value) : content_(PropertyListDocument::integer(value)) {}
PropertyList::PropertyList(std::uint64_t value) : content_(PropertyListDocument::unsignedInteger(value)) {}
PropertyList::PropertyList(double value) : content_(PropertyListDocument::real(value)) {}

PropertyList::PropertyList(const char* value)
    : PropertyList(value != nullptr ? PropertyList(std::string_view(value)) : PropertyList()) {}

PropertyList::PropertyList(std::string_view value) {
  Node* node = Node::make(Storage::Kind::Bytes, value.size(), 1);
  std::copy(value.begin(), value.end(), reinterpret_cast<char*>(node->payload()));
  content_ = contentOf(Type::String, value.size());
  content_.text = reinterpret_cast<const char*>(node->payload());
  content_.storage = node;
}

PropertyList::PropertyList(const std::string& value) : PropertyList(std::string_view(value)) {}

PropertyList::PropertyList(Array elements) {
  Node* node = Node::make(Storage::Kind::Elements, elements.size(), sizeof(PropertyList));
  std::uninitialized_move(elements.begin(), elements.end(), node->elements().data());
  content_ = contentOf(Type::Array, elements.size());
  content_.elements = node->elements().data();
  content_.storage = node;
}

PropertyList::PropertyList(const std::vector<std::string>& elements)
    : PropertyList(Array(elements.begin(), elements.end())) {}

PropertyList PropertyList::data(std::span<const std::byte> bytes) {
  Node* node = Node::make(Storage::Kind::Bytes, bytes.size(), 1);
  std::copy(bytes.begin(), bytes.end(), node->payload());
  return fromNode(Type::Data, node, bytes.size());
}

PropertyList PropertyList::date(double secondsSince2001) {
  return PropertyList(PropertyListDocument::date(secondsSince2001));
}

PropertyList PropertyList::fromSorted(std::span<const Entry> entries) {
  std::size_t keyBytes = 0;
  for (const Entry& entry : entries) keyBytes += entry.key.size();
  Node* node = Node::make(Storage::Kind::Entries, entries.size(), sizeof(Entry), keyBytes);
  char* key = reinterpret_cast<char*>(node->entries().data() + entries.size());
  Entry* place = node->entries().data();
  for (const Entry& entry : entries) {
    std::copy(entry.key.begin(), entry.key.end(), key);
    new (place++) Entry{std::string_view(key, entry.key.size()), entry.value};
    key += entry.key.size();
  }
  Content content = contentOf(Type::Dictionary, entries.size());
  content.entries = node->entries().data();
  content.storage = node;
  return PropertyList(content);
}

PropertyList PropertyList::dictionary(std::vector<std::pair<std::string, PropertyList>> entries) {
  std::stable_sort(entries.begin(), entries.end(),
                   [](const auto& left, const auto& right) { return left.first < right.first; });
  std::vector<Entry> sorted;
  sorted.reserve(entries.size());
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const bool replacedByTheNext = i + 1 < entries.size() && entries[i + 1].first == entries[i].first;
    if (!replacedByTheNext && !entries[i].second.isNil()) sorted.push_back({entries[i].first, entries[i].second});
  }
  return fromSorted(sorted);
}

void PropertyList::retain(Storage* storage) noexcept { storage->references.fetch_add(1, std::memory_order_relaxed); }

void PropertyList::giveUpChild(const PropertyList& child, Storage*& unused) noexcept {
  Storage* storage = child.content_.storage;
  if (storage == nullptr || storage->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  storage->nextUnused = unused;
  unused = storage;
}

void PropertyList::release(Storage* storage) noexcept {
  if (storage->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  Storage* unused = storage;
  while (unused != nullptr) {
    Storage* current = std::exchange(unused, unused->nextUnused);
    if (current->kind == Storage::Kind::Document) {
      PropertyListDocument::destroy(current);
      continue;
    }
    Node* node = static_cast<Node*>(current);
    if (node->kind == Storage::Kind::Elements) {
      for (const PropertyList& element : node->elements()) giveUpChild(element, unused);
    } else if (node->kind == Storage::Kind::Entries) {
      for (const Entry& entry : node->entries()) giveUpChild(entry.value, unused);
    }
    Node::destroy(node);
  }
}

bool PropertyList::isNumber() const { return hasType(Type::Boolean) || hasType(Type::Integer) || hasType(Type::Real); }

std::optional<std::string_view> PropertyList::string() const {
  if (!hasType(Type::String)) return std::nullopt;
  return std::string_view(content_.text, content_.size);
}

std::optional<std::int64_t> PropertyList::integer() const {
  switch (type()) {
    case Type::Boolean:
      return content_.integer;
    case Type::Integer:
      return isLargeUnsigned() ? std::numeric_limits<std::int64_t>::max() : content_.integer;
    case Type::Real:
      return saturated(content_.real);
    default:
      return std::nullopt;
  }
}

bool PropertyList::isLargeUnsigned() const { return content_.largeUnsigned != 0; }

std::optional<std::uint64_t> PropertyList::unsignedInteger() const {
  if (isLargeUnsigned()) return content_.unsignedInteger;
  if (hasType(Type::Real)) return saturatedUnsigned(content_.real);
  const auto value = integer();
  if (!value) return std::nullopt;
  return *value < 0 ? 0 : static_cast<std::uint64_t>(*value);
}

std::optional<double> PropertyList::real() const {
  if (hasType(Type::Real)) return content_.real;
  if (isLargeUnsigned()) return static_cast<double>(content_.unsignedInteger);
  const auto value = integer();
  if (!value) return std::nullopt;
  return static_cast<double>(*value);
}

std::optional<bool> PropertyList::boolean() const {
  if (!hasType(Type::Boolean)) return std::nullopt;
  return content_.integer != 0;
}

std::span<const std::byte> PropertyList::bytes() const {
  if (!hasType(Type::Data)) return {};
  return {content_.bytes, content_.size};
}

std::optional<double> PropertyList::secondsSince2001() const {
  if (!hasType(Type::Date)) return std::nullopt;
  return content_.real;
}

std::span<const PropertyList> PropertyList::elements() const {
  if (!isArray()) return {};
  return {content_.elements, content_.size};
}

std::span<const PropertyList::Entry> PropertyList::entries() const {
  if (!isDictionary()) return {};
  return {content_.entries, content_.size};
}

std::size_t PropertyList::count() const { return isArray() || isDictionary() ? content_.size : 0; }

const PropertyList& PropertyList::operator[](std::string_view key) const {
  const auto all = entries();
  if (all.size() <= kLinearSearchLimit) {
    for (const Entry& entry : all) {
      if (entry.key == key) return entry.value;
    }
    return kNil;
  }
  const auto found = std::lower_bound(all.begin(), all.end(), key,
                                      [](const Entry& entry, std::string_view wanted) { return entry.key < wanted; });
  return found != all.end() && found->key == key ? found->value : kNil;
}

const PropertyList& PropertyList::at(std::size_t index) const {
  const auto all = elements();
  return index < all.size() ? all[index] : kNil;
}

PropertyList PropertyList::with(std::string_view key, PropertyList value) const {
  const auto all = entries();
  const auto place = std::lower_bound(all.begin(), all.end(), key,
                                      [](const Entry& entry, std::string_view wanted) { return entry.key < wanted; });
  std::vector<Entry> changed(all.begin(), place);
  changed.reserve(all.size() + 1);
  if (!value.isNil()) changed.push_back({key, std::move(value)});
  const bool replaces = place != all.end() && place->key == key;
  changed.insert(changed.end(), replaces ? place + 1 : place, all.end());
  return fromSorted(changed);
}

PropertyList PropertyList::appending(PropertyList element) const {
  const auto all = elements();
  Array longer;
  longer.reserve(all.size() + 1);
  longer.assign(all.begin(), all.end());
  longer.push_back(std::move(element));
  return PropertyList(std::move(longer));
}

std::vector<std::string> PropertyList::strings() const {
  std::vector<std::string> texts;
  for (const PropertyList& element : elements()) {
    if (element.isString()) texts.emplace_back(element.text());
  }
  return texts;
}

bool PropertyList::equalScalars(const PropertyList& left, const PropertyList& right) {
  if (left.isNumber() && right.isNumber()) {
    if (!left.hasType(Type::Real) && !right.hasType(Type::Real)) {
      return left.isLargeUnsigned() == right.isLargeUnsigned() &&
             left.content_.unsignedInteger == right.content_.unsignedInteger;
    }
    const double a = *left.real();
    const double b = *right.real();
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
    // Beyond 53 bits a double stands for one of many integers; only that very one is equal.
    return a == b && left.integer() == right.integer() && left.unsignedInteger() == right.unsignedInteger();
  }
  if (left.type() != right.type()) return false;
  switch (left.type()) {
    case Type::String:
      return left.text() == right.text();
    case Type::Data:
      return std::ranges::equal(left.bytes(), right.bytes());
    case Type::Date:
      return left.content_.real == right.content_.real;
    default:
      return true;
  }
}

bool operator==(const PropertyList& left, const PropertyList& right) {
  std::vector<std::pair<const PropertyList*, const PropertyList*>> open{{&left, &right}};
  while (!open.empty()) {
    const auto [a, b] = open.back();
    open.pop_back();
    if (!PropertyList::equalScalars(*a, *b) || a->count() != b->count()) return false;
    if (a->isArray() && a->content_.elements != b->content_.elements) {
      for (std::size_t i = 0; i < a->count(); ++i) open.emplace_back(&a->at(i), &b->at(i));
    }
    if (a->isDictionary() && a->content_.entries != b->content_.entries) {
      for (std::size_t i = 0; i < a->count(); ++i) {
        if (a->entries()[i].key != b->entries()[i].key) return false;
        open.emplace_back(&a->entries()[i].value, &b->entries()[i].value);
      }
    }
  }
  return true;
}

}  // namespace foundation
