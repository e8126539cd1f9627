#include "general/foundation/propertylist/PropertyListDocument.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <numeric>

namespace foundation {

namespace {

constexpr std::size_t kFirstBlock = std::size_t{16} << 10;
constexpr std::size_t kLargestBlock = std::size_t{4} << 20;
constexpr std::size_t kAlignment = alignof(std::max_align_t);
// Both tables only remember what was seen last in a place, so a document made to collide in them costs no more.
constexpr std::size_t kRememberedKeys = 256;
constexpr std::size_t kRememberedShapes = 64;
constexpr std::size_t kLargestShape = 24;

// Mixes the length with the first and the last bytes: keys that differ at all mostly differ there.
std::size_t keySlot(std::string_view key) {
  if (key.empty()) return 0;
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  const std::size_t taken = std::min(key.size(), sizeof first);
  std::memcpy(&first, key.data(), taken);
  std::memcpy(&last, key.data() + (key.size() - taken), taken);
  const std::uint64_t mixed = (first ^ std::rotl(last, 29) ^ key.size()) * 0x9E3779B97F4A7C15U;
  return static_cast<std::size_t>(mixed >> 32) % kRememberedKeys;
}

}  // namespace

struct PropertyListDocument::Memory : PropertyList::Storage {
  Memory() : Storage(Kind::Document) {}

  std::vector<std::unique_ptr<std::byte[]>> blocks;
  std::byte* free = nullptr;
  std::size_t freeBytes = 0;
  std::size_t nextBlock = kFirstBlock;
};

// The keys of a dictionary in the document's order, and where sorting puts them.
struct PropertyListDocument::Shape {
  std::size_t count = 0;
  std::array<const char*, kLargestShape> keys{};
  std::array<std::size_t, kLargestShape> lengths{};
  std::array<std::size_t, kLargestShape> order{};

  bool matches(std::span<const std::string_view> others) const {
    if (count != others.size()) return false;
    for (std::size_t i = 0; i < count; ++i) {
      if (keys[i] != others[i].data() || lengths[i] != others[i].size()) return false;
    }
    return true;
  }
};

PropertyListDocument::PropertyListDocument()
    : memory_(new Memory), rememberedKeys_(kRememberedKeys), shapes_(kRememberedShapes) {}

PropertyListDocument::~PropertyListDocument() {
  if (memory_ != nullptr) destroy(memory_);
}

void PropertyListDocument::destroy(PropertyList::Storage* memory) { delete static_cast<Memory*>(memory); }

std::byte* PropertyListDocument::allocate(std::size_t bytes) {
  if (bytes > std::numeric_limits<std::size_t>::max() - kAlignment) throw std::bad_alloc();
  const std::size_t rounded = (bytes + kAlignment - 1) / kAlignment * kAlignment;
  if (rounded > memory_->freeBytes) {
    if (rounded > memory_->nextBlock / 2) {
      memory_->blocks.push_back(std::make_unique_for_overwrite<std::byte[]>(rounded));
      return memory_->blocks.back().get();
    }
    memory_->blocks.push_back(std::make_unique_for_overwrite<std::byte[]>(memory_->nextBlock));
    memory_->free = memory_->blocks.back().get();
    memory_->freeBytes = memory_->nextBlock;
    memory_->nextBlock = std::min(memory_->nextBlock * 2, kLargestBlock);
  }
  std::byte* result = memory_->free;
  memory_->free += rounded;
  memory_->freeBytes -= rounded;
  return result;
}

PropertyListDocument::Value PropertyListDocument::boolean(bool value) {
  Value content = PropertyList::contentOf(PropertyList::Type::Boolean);
  content.integer = value ? 1 : 0;
  return content;
}

PropertyListDocument::Value PropertyListDocument::integer(std::int64_t value) {
  Value content = PropertyList::contentOf(PropertyList::Type::Integer);
  content.integer = value;
  return content;
}

PropertyListDocument::Value PropertyListDocument::unsignedInteger(std::uint64_t value) {
  Value content = PropertyList::contentOf(PropertyList::Type::Integer);
  content.unsignedInteger = value;
  content.largeUnsigned = value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) ? 1 : 0;
  return content;
}

PropertyListDocument::Value PropertyListDocument::real(double value) {
  Value content = PropertyList::contentOf(PropertyList::Type::Real);
  content.real = value;
  return content;
}

PropertyListDocument::Value PropertyListDocument::date(double secondsSince2001) {
  Value content = PropertyList::contentOf(PropertyList::Type::Date);
  content.real = secondsSince2001;
  return content;
}

PropertyListDocument::Value PropertyListDocument::place(PropertyList::Type type, std::size_t size) {
  Value content = PropertyList::contentOf(type, size);
  content.storage = memory_;
  return content;
}

PropertyListDocument::Value PropertyListDocument::string(std::string_view text) {
  Value content = place(PropertyList::Type::String, text.size());
  content.text = text.data();
  return content;
}

PropertyListDocument::Value PropertyListDocument::data(std::span<const std::byte> bytes) {
  Value content = place(PropertyList::Type::Data, bytes.size());
  content.bytes = bytes.data();
  return content;
}

PropertyListDocument::Value PropertyListDocument::array(std::span<const Value> elements) {
  auto* memory = reinterpret_cast<PropertyList*>(allocate(elements.size() * sizeof(PropertyList)));
  PropertyList* element = memory;
  for (const Value& value : elements) new (element++) PropertyList(value);
  Value content = place(PropertyList::Type::Array, elements.size());
  content.elements = memory;
  return content;
}

PropertyListDocument::Value PropertyListDocument::sortedDictionary(std::span<const std::string_view> keys,
                                                                   std::span<const Value> values,
                                                                   std::span<const std::size_t> order) {
  auto* memory = reinterpret_cast<PropertyList::Entry*>(allocate(order.size() * sizeof(PropertyList::Entry)));
  PropertyList::Entry* entry = memory;
  for (const std::size_t index : order) new (entry++) PropertyList::Entry{keys[index], PropertyList(values[index])};
  Value content = place(PropertyList::Type::Dictionary, order.size());
  content.entries = memory;
  return content;
}

std::vector<std::size_t> PropertyListDocument::sortedOrder(std::span<const std::string_view> keys) {
  std::vector<std::size_t> order(keys.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
  std::size_t kept = 0;
  for (std::size_t i = 0; i < order.size(); ++i) {
    const bool replacedByTheNext = i + 1 < order.size() && keys[order[i]] == keys[order[i + 1]];
    if (!replacedByTheNext) order[kept++] = order[i];
  }
  order.resize(kept);
  return order;
}

PropertyListDocument::Value PropertyListDocument::dictionary(std::span<const std::string_view> keys,
                                                             std::span<const Value> values) {
  if (keys.empty() || keys.size() > kLargestShape) return sortedDictionary(keys, values, sortedOrder(keys));
  std::size_t slot = keys.size();
  for (const std::string_view key : keys) slot = slot * 31 + keySlot(key);
  Shape& shape = shapes_[slot % kRememberedShapes];
  if (shape.matches(keys)) return sortedDictionary(keys, values, std::span(shape.order).first(shape.count));

  const std::vector<std::size_t> order = sortedOrder(keys);
  const bool allKept = order.size() == keys.size();
  if (allKept) {
    shape.count = keys.size();
    for (std::size_t i = 0; i < keys.size(); ++i) {
      shape.keys[i] = keys[i].data();
      shape.lengths[i] = keys[i].size();
      shape.order[i] = order[i];
    }
  }
  return sortedDictionary(keys, values, order);
}

std::optional<std::string_view> PropertyListDocument::textOf(const Value& value) {
  if (value.type != static_cast<std::uint64_t>(PropertyList::Type::String)) return std::nullopt;
  return std::string_view(value.text, value.size);
}

std::string_view PropertyListDocument::sharedKey(std::string_view key) {
  const std::size_t slot = keySlot(key);
  std::string_view& first = rememberedKeys_[slot];
  if (first == key) return first;
  // A second place lets two frequent keys that fall together both be remembered.
  std::string_view& second = rememberedKeys_[slot ^ 1U];
  if (second == key) return second;
  std::string_view& place = first.empty() ? first : second;
  place = key;
  return key;
}

PropertyList PropertyListDocument::finish(const Value& top) {
  // A number needs no document: its memory goes with this object.
  if (top.storage == nullptr) return PropertyList(top);
  PropertyList result(top);
  memory_ = nullptr;
  return result;
}

}  // namespace foundation
