#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "general/foundation/Unicode.h"
#include "general/foundation/propertylist/PropertyListBinaryFormat.h"
#include "general/foundation/propertylist/PropertyListCodecs.h"
#include "general/foundation/propertylist/PropertyListDocument.h"

namespace foundation::plist {

namespace {

using Value = PropertyListDocument::Value;
using binary::Kind;

// Objects may be referred to from many places, and may overlap in the file. So what a document makes in memory, and
// what it comes to with every reference written out, are both bounded by a multiple of its length.
constexpr std::uint64_t kGrowthLimit = 64;
constexpr std::uint64_t kSmallestBudget = std::uint64_t{16} << 20;
constexpr std::uint64_t kValueCost = 16;

constexpr std::uint32_t kUnread = 0;
constexpr std::uint32_t kBeingRead = std::numeric_limits<std::uint32_t>::max();

class BinaryReader {
 public:
  explicit BinaryReader(std::span<const std::byte> source)
      : source_(source), budget_(std::max(kSmallestBudget, kGrowthLimit * source.size())) {}

  Result<PropertyList> read() {
    if (!readTrailer() || !copySource()) return error();
    const Object* top = object(topObject_, 0);
    if (top == nullptr) return error();
    return document_.finish(top->value);
  }

 private:
  // An object that was read, with its size when written out in full and the depth of what it holds.
  struct Object {
    Value value;
    std::uint64_t weight = kValueCost;
    int height = 0;
  };

  Error error() const {
    return readError("The property list is not valid: " + std::string(fault_) + " at byte " +
                     std::to_string(faultOffset_) + ".");
  }

  bool fail(std::uint64_t offset, std::string_view what) {
    fault_ = what;
    faultOffset_ = offset;
    return false;
  }

  // The caller has checked that the bytes are there.
  std::uint64_t number(std::size_t offset, std::size_t size) const {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) value = (value << 8) | std::to_integer<std::uint64_t>(source_[offset + i]);
    return value;
  }

  bool readTrailer() {
    if (source_.size() < kBinaryMagic.size() + binary::kTrailerSize) return fail(0, "document cut short");
    const std::size_t trailer = source_.size() - binary::kTrailerSize;
    offsetSize_ = number(trailer + binary::kOffsetSizeAt, 1);
    referenceSize_ = number(trailer + binary::kReferenceSizeAt, 1);
    const std::uint64_t count = number(trailer + binary::kObjectCountAt, 8);
    topObject_ = number(trailer + binary::kTopObjectAt, 8);
    const std::uint64_t table = number(trailer + binary::kOffsetTableAt, 8);
    const auto isSize = [](std::size_t size) { return size >= 1 && size <= sizeof(std::uint64_t); };
    if (!isSize(offsetSize_) || !isSize(referenceSize_)) return fail(trailer, "bad sizes in the trailer");
    if (table < kBinaryMagic.size() || table > trailer) return fail(trailer, "bad offset table");
    if (count == 0 || count > (trailer - table) / offsetSize_) return fail(trailer, "bad number of objects");
    if (topObject_ >= count) return fail(trailer, "bad top object");
    objectsEnd_ = static_cast<std::size_t>(table);
    slots_.resize(static_cast<std::size_t>(count), kUnread);
    return true;
  }

  // Texts and data stay where they are in a copy of the document that belongs to the values.
  bool copySource() {
    std::byte* memory = document_.allocate(source_.size());
    std::copy(source_.begin(), source_.end(), memory);
    source_ = {memory, source_.size()};
    return true;
  }

  bool spend(std::uint64_t offset, std::uint64_t cost) {
    if (cost > budget_ - spent_) return fail(offset, "objects that come to too much");
    spent_ += cost;
    return true;
  }

  // The object, read once however often it is referred to; null on failure. Stands until the next object is read.
  const Object* object(std::uint64_t index, int depth) {
    if (index >= slots_.size()) {
      fail(0, "reference to no object");
      return nullptr;
    }
    std::uint32_t& slot = slots_[static_cast<std::size_t>(index)];
    const std::size_t entry = objectsEnd_ + static_cast<std::size_t>(index) * offsetSize_;
    const std::uint64_t offset = number(entry, offsetSize_);
    if (slot == kBeingRead) {
      fail(offset, "container that holds itself");
      return nullptr;
    }
    if (slot == kUnread) {
      if (offset < kBinaryMagic.size() || offset >= objectsEnd_) {
        fail(entry, "bad offset");
        return nullptr;
      }
      slot = kBeingRead;
      Object result;
      if (!readObject(static_cast<std::size_t>(offset), depth, result)) return nullptr;
      objects_.push_back(result);
      slot = static_cast<std::uint32_t>(objects_.size());
    }
    return &objects_[slot - 1];
  }

  bool readObject(std::size_t offset, int depth, Object& result) {
    if (!spend(offset, sizeof(Object))) return false;
    const auto marker = std::to_integer<std::uint8_t>(source_[offset]);
    const auto low = static_cast<std::uint8_t>(marker & 0xFU);
    switch (static_cast<Kind>(marker >> 4)) {
      case Kind::Simple:
        if (low != binary::kTrue && low != binary::kFalse) return fail(offset, "unknown object");
        result.value = PropertyListDocument::boolean(low == binary::kTrue);
        return true;
      case Kind::Integer:
        return readInteger(offset, low, result);
      case Kind::Real:
        return readReal(offset, low, result);
      case Kind::Date:
        return readDate(offset, low, result);
      case Kind::Data:
      case Kind::AsciiString:
      case Kind::Utf16String:
        return readBytes(offset, result);
      case Kind::Array:
        return readArray(offset, depth, result);
      case Kind::Dictionary:
        return readDictionary(offset, depth, result);
    }
    return fail(offset, "unknown object");
  }

  bool isThere(std::size_t offset, std::uint64_t size) const { return size <= objectsEnd_ - offset; }

  bool readInteger(std::size_t offset, std::uint8_t low, Object& result) {
    if (low > 4 || !isThere(offset, 1 + (std::uint64_t{1} << low))) return fail(offset, "bad integer");
    const std::size_t size = std::size_t{1} << low;
    if (size == 16) {
      if (number(offset + 1, 8) != 0) return fail(offset, "integer beyond 64 bits");
      result.value = PropertyListDocument::unsignedInteger(number(offset + 9, 8));
    } else {
      // Only eight bytes carry a sign.
      result.value = PropertyListDocument::integer(static_cast<std::int64_t>(number(offset + 1, size)));
    }
    return true;
  }

  bool readReal(std::size_t offset, std::uint8_t low, Object& result) {
    if ((low != 2 && low != 3) || !isThere(offset, 1 + (std::uint64_t{1} << low))) return fail(offset, "bad real");
    result.value = PropertyListDocument::real(
        low == 3 ? std::bit_cast<double>(number(offset + 1, 8))
                 : static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(number(offset + 1, 4)))));
    return true;
  }

  bool readDate(std::size_t offset, std::uint8_t low, Object& result) {
    if (low != binary::kDateSize || !isThere(offset, 9)) return fail(offset, "bad date");
    const double seconds = std::bit_cast<double>(number(offset + 1, 8));
    if (!std::isfinite(seconds)) return fail(offset, "bad date");
    result.value = PropertyListDocument::date(seconds);
    return true;
  }

  // Reads the length that stands in or behind a marker; `start` becomes the offset of what it counts.
  bool readLength(std::size_t offset, std::size_t unit, std::size_t& start, std::size_t& length) {
    start = offset + 1;
    std::uint64_t count = std::to_integer<std::uint64_t>(source_[offset] & std::byte{0xF});
    if (count == binary::kLongLength) {
      if (start >= objectsEnd_) return fail(offset, "object cut short");
      const auto marker = std::to_integer<std::uint8_t>(source_[start]);
      const std::size_t size = std::size_t{1} << (marker & 0x3U);
      if ((marker & 0xFCU) != static_cast<unsigned>(Kind::Integer) << 4 || !isThere(start, 1 + size)) {
        return fail(offset, "bad length");
      }
      count = number(start + 1, size);
      start += 1 + size;
    }
    if (count > (objectsEnd_ - start) / unit) return fail(offset, "object longer than the document");
    length = static_cast<std::size_t>(count);
    return true;
  }

  bool readBytes(std::size_t offset, Object& result) {
    const auto kind = static_cast<Kind>(std::to_integer<std::uint8_t>(source_[offset] >> 4));
    const std::size_t unit = kind == Kind::Utf16String ? 2 : 1;
    std::size_t start = 0;
    std::size_t length = 0;
    if (!readLength(offset, unit, start, length)) return false;
    const auto bytes = source_.subspan(start, length * unit);
    result.weight += bytes.size();
    if (!spend(offset, bytes.size())) return false;
    if (kind == Kind::Utf16String) return readUtf16(offset, bytes, result);
    if (kind == Kind::Data) {
      result.value = document_.data(bytes);
      return true;
    }
    if (std::ranges::any_of(bytes, [](std::byte byte) { return (byte & std::byte{0x80}) != std::byte{0}; })) {
      return fail(offset, "text that is not ASCII");
    }
    result.value = document_.string({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    return true;
  }

  bool readUtf16(std::size_t offset, std::span<const std::byte> bytes, Object& result) {
    const auto text = unicode::utf8FromUtf16(bytes, unicode::ByteOrder::BigEndian);
    if (!text) return fail(offset, "text that is not UTF-16");
    char* memory = reinterpret_cast<char*>(document_.allocate(text->size()));
    std::copy(text->begin(), text->end(), memory);
    result.value = document_.string({memory, text->size()});
    return true;
  }

  bool readArray(std::size_t offset, int depth, Object& result) {
    std::size_t start = 0;
    std::size_t count = 0;
    if (!readLength(offset, referenceSize_, start, count) || !enter(offset, count, depth)) return false;
    const std::size_t firstValue = values_.size();
    for (std::size_t i = 0; i < count; ++i) {
      if (!appendChild(offset, start + i * referenceSize_, depth, result)) return false;
    }
    result.value = document_.array(std::span(values_).subspan(firstValue));
    values_.resize(firstValue);
    return leave(offset, result);
  }

  bool readDictionary(std::size_t offset, int depth, Object& result) {
    std::size_t start = 0;
    std::size_t count = 0;
    if (!readLength(offset, 2 * referenceSize_, start, count) || !enter(offset, 2 * count, depth)) return false;
    const std::size_t firstKey = keys_.size();
    const std::size_t firstValue = values_.size();
    for (std::size_t i = 0; i < count; ++i) {
      if (!appendKey(offset, start + i * referenceSize_, depth, result)) return false;
      if (!appendChild(offset, start + (count + i) * referenceSize_, depth, result)) return false;
    }
    result.value = document_.dictionary(std::span(keys_).subspan(firstKey), std::span(values_).subspan(firstValue));
    keys_.resize(firstKey);
    values_.resize(firstValue);
    return leave(offset, result);
  }

  bool enter(std::size_t offset, std::size_t references, int depth) {
    if (depth >= kMaximumNesting) return fail(offset, "too deep a nesting");
    return spend(offset, references * sizeof(PropertyList::Entry));
  }

  // An object that was met before may hold more levels than were counted on the way to it.
  bool leave(std::size_t offset, Object& result) {
    if (++result.height > kMaximumNesting) return fail(offset, "too deep a nesting");
    return true;
  }

  bool appendChild(std::size_t container, std::size_t referenceAt, int depth, Object& result) {
    const Object* child = object(number(referenceAt, referenceSize_), depth + 1);
    if (child == nullptr) return false;
    values_.push_back(child->value);
    return addTo(container, *child, result);
  }

  bool appendKey(std::size_t container, std::size_t referenceAt, int depth, Object& result) {
    const Object* child = object(number(referenceAt, referenceSize_), depth + 1);
    if (child == nullptr) return false;
    const auto text = PropertyListDocument::textOf(child->value);
    if (!text) return fail(container, "key that is no text");
    keys_.push_back(document_.sharedKey(*text));
    return addTo(container, *child, result);
  }

  bool addTo(std::size_t container, const Object& child, Object& result) {
    result.height = std::max(result.height, child.height);
    result.weight += child.weight;
    return result.weight <= budget_ || fail(container, "objects that come to too much");
  }

  std::span<const std::byte> source_;
  const std::uint64_t budget_;
  std::uint64_t spent_ = 0;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::uint64_t topObject_ = 0;
  std::size_t objectsEnd_ = 0;
  PropertyListDocument document_;
  // For each object of the offset table: unread, being read, or one more than its place among the objects read.
  std::vector<std::uint32_t> slots_;
  std::vector<Object> objects_;
  std::vector<std::string_view> keys_;
  std::vector<Value> values_;
  std::string_view fault_;
  std::uint64_t faultOffset_ = 0;
};

}  // namespace

Result<PropertyList> parseBinary(std::span<const std::byte> document) { return BinaryReader(document).read(); }

}  // namespace foundation::plist
