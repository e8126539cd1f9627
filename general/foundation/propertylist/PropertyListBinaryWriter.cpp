#include <algorithm>
#include <bit>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "general/foundation/Unicode.h"
#include "general/foundation/propertylist/PropertyListBinaryFormat.h"
#include "general/foundation/propertylist/PropertyListCodecs.h"

namespace foundation::plist {

namespace {

using binary::Kind;

constexpr std::size_t kLargeData = 4096;

void appendNumber(std::string& output, std::uint64_t value, std::size_t size) {
  for (std::size_t i = size; i > 0; --i) output.push_back(static_cast<char>(value >> (8 * (i - 1))));
}

// The fewest bytes out of 1, 2, 4 and 8 that hold the value; their number as a power of two.
std::uint8_t sizeExponent(std::uint64_t value) {
  if (value <= 0xFF) return 0;
  if (value <= 0xFFFF) return 1;
  return value <= 0xFFFFFFFF ? 2 : 3;
}

std::size_t bytesFor(std::uint64_t value) { return std::size_t{1} << sizeExponent(value); }

void appendMarker(std::string& output, Kind kind, std::uint8_t low) {
  output.push_back(static_cast<char>((static_cast<unsigned>(kind) << 4) | low));
}

void appendUnsigned(std::string& output, std::uint64_t value) {
  const std::uint8_t exponent = sizeExponent(value);
  appendMarker(output, Kind::Integer, exponent);
  appendNumber(output, value, std::size_t{1} << exponent);
}

void appendLength(std::string& output, Kind kind, std::size_t length) {
  const bool isLong = length >= binary::kLongLength;
  appendMarker(output, kind, isLong ? binary::kLongLength : static_cast<std::uint8_t>(length));
  if (isLong) appendUnsigned(output, length);
}

void appendData(std::string& output, std::span<const std::byte> data) {
  appendLength(output, Kind::Data, data.size());
  output.append(reinterpret_cast<const char*>(data.data()), data.size());
}

bool isAscii(std::string_view text) {
  return std::ranges::all_of(text, [](char character) { return static_cast<unsigned char>(character) < 0x80; });
}

/// Writes one value. Equal texts and numbers are written once.
class BinaryWriter {
 public:
  Result<std::string> write(const PropertyList& value) {
    std::size_t top = 0;
    if (!collect(value, 0, top)) return writeError(fault_);
    return assemble();
  }

 private:
  // A scalar, encoded; large data, which are not copied before they are written; or a container with its references.
  struct Object {
    const std::string* scalar = nullptr;
    std::span<const std::byte> data{};
    Kind containerKind = Kind::Array;
    std::size_t count = 0;
    std::vector<std::size_t> references;
  };

  bool fail(std::string_view what) {
    fault_ = what;
    return false;
  }

  bool collect(const PropertyList& value, int depth, std::size_t& index) {
    if (value.isArray() || value.isDictionary()) return collectContainer(value, depth, index);
    if (value.type() == PropertyList::Type::Data && value.bytes().size() >= kLargeData) {
      index = objects_.size();
      objects_.push_back({.data = value.bytes(), .references = {}});
      return true;
    }
    std::string encoded;
    if (!encodeScalar(value, encoded)) return false;
    index = scalarIndex(std::move(encoded));
    return true;
  }

  // A tree and no hash table: the texts come from outside and could be made to collide.
  std::size_t scalarIndex(std::string encoded) {
    const auto [place, isNew] = scalars_.try_emplace(std::move(encoded), objects_.size());
    if (isNew) objects_.push_back({.scalar = &place->first, .references = {}});
    return place->second;
  }

  bool collectContainer(const PropertyList& value, int depth, std::size_t& index) {
    if (depth >= kMaximumNesting) return fail("Values are nested too deep.");
    index = objects_.size();
    objects_.emplace_back();
    std::vector<std::size_t> references;
    references.reserve(value.count() * (value.isDictionary() ? 2 : 1));
    for (const auto& entry : value.entries()) {
      std::string encoded;
      if (!encodeText(entry.key, encoded)) return false;
      references.push_back(scalarIndex(std::move(encoded)));
    }
    const auto add = [&](const PropertyList& child) {
      std::size_t childIndex = 0;
      if (!collect(child, depth + 1, childIndex)) return false;
      references.push_back(childIndex);
      return true;
    };
    if (!std::ranges::all_of(value.elements(), add)) return false;
    if (!std::ranges::all_of(value.entries(), [&](const auto& entry) { return add(entry.value); })) return false;
    Object& object = objects_[index];
    object.containerKind = value.isArray() ? Kind::Array : Kind::Dictionary;
    object.count = value.count();
    object.references = std::move(references);
    return true;
  }

  bool encodeScalar(const PropertyList& value, std::string& output) {
    switch (value.type()) {
      case PropertyList::Type::Boolean:
        appendMarker(output, Kind::Simple, *value.boolean() ? binary::kTrue : binary::kFalse);
        return true;
      case PropertyList::Type::Integer:
        encodeInteger(value, output);
        return true;
      case PropertyList::Type::Real:
        appendMarker(output, Kind::Real, 3);
        appendNumber(output, std::bit_cast<std::uint64_t>(*value.real()), 8);
        return true;
      case PropertyList::Type::Date:
        appendMarker(output, Kind::Date, binary::kDateSize);
        appendNumber(output, std::bit_cast<std::uint64_t>(*value.secondsSince2001()), 8);
        return true;
      case PropertyList::Type::Data:
        appendData(output, value.bytes());
        return true;
      case PropertyList::Type::String:
        return encodeText(value.text(), output);
      default:
        return fail("A property list cannot hold nil.");
    }
  }

  static void encodeInteger(const PropertyList& value, std::string& output) {
    if (value.isLargeUnsigned()) {
      appendMarker(output, Kind::Integer, 4);
      appendNumber(output, 0, 8);
      appendNumber(output, *value.unsignedInteger(), 8);
      return;
    }
    appendUnsigned(output, static_cast<std::uint64_t>(*value.integer()));
  }

  bool encodeText(std::string_view text, std::string& output) {
    if (isAscii(text)) {
      appendLength(output, Kind::AsciiString, text.size());
      output += text;
      return true;
    }
    if (!unicode::isValidUtf8(text)) return fail("A text is not valid Unicode.");
    const std::u16string units = unicode::utf16FromUtf8(text);
    appendLength(output, Kind::Utf16String, units.size());
    for (const char16_t unit : units) appendNumber(output, unit, 2);
    return true;
  }

  std::string assemble() const {
    std::string output;
    output.reserve(mostBytes());
    output += kBinaryMagic;
    const std::size_t referenceSize = bytesFor(objects_.size() - 1);
    std::vector<std::size_t> offsets;
    offsets.reserve(objects_.size());
    for (const Object& object : objects_) {
      offsets.push_back(output.size());
      if (object.scalar != nullptr) {
        output += *object.scalar;
        continue;
      }
      if (!object.data.empty()) {
        appendData(output, object.data);
        continue;
      }
      appendLength(output, object.containerKind, object.count);
      for (const std::size_t reference : object.references) appendNumber(output, reference, referenceSize);
    }
    const std::size_t table = output.size();
    const std::size_t offsetSize = bytesFor(table);
    for (const std::size_t offset : offsets) appendNumber(output, offset, offsetSize);
    appendTrailer(output, offsetSize, referenceSize, table);
    return output;
  }

  // A little more than is written: a large document is not copied while it grows.
  [[nodiscard]] std::size_t mostBytes() const {
    constexpr std::size_t kNumber = 8;
    constexpr std::size_t kMarkerLengthAndOffset = 3 * kNumber;
    constexpr std::size_t kMagicAndTrailer = 64;
    std::size_t bytes = kMagicAndTrailer;
    for (const Object& object : objects_) {
      const std::size_t scalar = object.scalar != nullptr ? object.scalar->size() : 0;
      bytes += kMarkerLengthAndOffset + scalar + object.data.size() + object.references.size() * kNumber;
    }
    return bytes;
  }

  void appendTrailer(std::string& output, std::size_t offsetSize, std::size_t referenceSize, std::size_t table) const {
    output.append(binary::kOffsetSizeAt, '\0');
    appendNumber(output, offsetSize, 1);
    appendNumber(output, referenceSize, 1);
    appendNumber(output, objects_.size(), 8);
    appendNumber(output, /*top object*/ 0, 8);
    appendNumber(output, table, 8);
  }

  std::map<std::string, std::size_t> scalars_;
  std::vector<Object> objects_;
  std::string_view fault_;
};

}  // namespace

Result<std::string> serializeBinary(const PropertyList& value) { return BinaryWriter().write(value); }

}  // namespace foundation::plist
