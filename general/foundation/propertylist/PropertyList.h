#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace foundation {

/// One value of a property list, or nothing (nil).
///
/// A value is immutable and shared: copying costs a reference count, so values may be passed and kept freely, from any
/// thread. Asking a value for something it is not gives nothing, never an error: looking a key up in an array, in a
/// number or in nil gives nil, the elements of a string are none. Content that comes from outside can therefore be
/// walked without a check before every step.
///
/// What was read from a document shares the document's memory: one small value kept of it keeps all of it.
class PropertyList {
 public:
  enum class Type { Nil, Boolean, Integer, Real, String, Data, Date, Array, Dictionary };

  /// One key and its value in a dictionary. The key lives as long as the dictionary does.
  struct Entry;
  using Array = std::vector<PropertyList>;

  PropertyList() = default;
  PropertyList(const PropertyList& other) noexcept : content_(other.content_) { retain(); }
  PropertyList(PropertyList&& other) noexcept : content_(std::exchange(other.content_, Content{})) {}
  PropertyList& operator=(const PropertyList& other) noexcept {
    PropertyList copy(other);
    std::swap(content_, copy.content_);
    return *this;
  }
  PropertyList& operator=(PropertyList&& other) noexcept {
    PropertyList taken(std::move(other));
    std::swap(content_, taken.content_);
    return *this;
  }
  ~PropertyList() {
    if (content_.storage != nullptr) release(content_.storage);
  }

  // Strings, booleans and numbers become values by themselves where a value is wanted.
  PropertyList(bool value);
  PropertyList(int value);
  PropertyList(std::int64_t value);
  PropertyList(std::uint64_t value);
  PropertyList(double value);
  /// A null pointer gives nil.
  PropertyList(const char* value);
  PropertyList(std::string_view value);
  PropertyList(const std::string& value);
  PropertyList(Array elements);
  PropertyList(const std::vector<std::string>& elements);
  [[nodiscard]] static PropertyList data(std::span<const std::byte> bytes);
  /// @param secondsSince2001 seconds since the first instant of 2001, UTC.
  [[nodiscard]] static PropertyList date(double secondsSince2001);
  /// A dictionary of the given pairs; of equal keys the last one counts. A nil value leaves its key out.
  [[nodiscard]] static PropertyList dictionary(std::vector<std::pair<std::string, PropertyList>> entries = {});

  [[nodiscard]] Type type() const { return static_cast<Type>(content_.type); }
  [[nodiscard]] bool isNil() const { return type() == Type::Nil; }
  [[nodiscard]] bool isString() const { return type() == Type::String; }
  [[nodiscard]] bool isArray() const { return type() == Type::Array; }
  [[nodiscard]] bool isDictionary() const { return type() == Type::Dictionary; }
  /// Booleans count as numbers, as they do on the platform.
  [[nodiscard]] bool isNumber() const;

  /// The text of a string; nothing for any other type. The view lives as long as this value or a copy of it.
  [[nodiscard]] std::optional<std::string_view> string() const;
  /// The text of a string, or an empty text.
  [[nodiscard]] std::string_view text() const { return string().value_or(std::string_view{}); }
  /// The number as a signed 64-bit integer: a boolean is 0 or 1, a real is cut and saturated; nothing for other types.
  [[nodiscard]] std::optional<std::int64_t> integer() const;
  /// True for integers beyond the signed range, whose value unsignedInteger() gives.
  [[nodiscard]] bool isLargeUnsigned() const;
  [[nodiscard]] std::optional<std::uint64_t> unsignedInteger() const;
  [[nodiscard]] std::optional<double> real() const;
  /// The value of a boolean; nothing for other types. For the lenient reading see NSDictionaryExtensions::boolForKey.
  [[nodiscard]] std::optional<bool> boolean() const;
  [[nodiscard]] std::span<const std::byte> bytes() const;
  [[nodiscard]] std::optional<double> secondsSince2001() const;

  /// The elements of an array; none for any other type. Lives as long as this value or a copy of it.
  [[nodiscard]] std::span<const PropertyList> elements() const;
  /// The entries of a dictionary, sorted by key; none for any other type. Lives as long as this value or a copy of it.
  [[nodiscard]] std::span<const Entry> entries() const;
  /// Number of elements or entries; 0 for every other type.
  [[nodiscard]] std::size_t count() const;

  /// The value under a key; nil when absent or when this is no dictionary. Lives as long as this value or a copy of it.
  [[nodiscard]] const PropertyList& operator[](std::string_view key) const;
  /// The element at an index; nil when out of range or when this is no array.
  [[nodiscard]] const PropertyList& at(std::size_t index) const;

  /// This dictionary with one entry set, or left out when the value is nil. Anything else counts as an empty
  /// dictionary. Costs the length of the dictionary.
  [[nodiscard]] PropertyList with(std::string_view key, PropertyList value) const;
  /// This array with one element appended. Anything else counts as an empty array. Costs the length of the array.
  [[nodiscard]] PropertyList appending(PropertyList element) const;

  /// Strings of the array that are strings, in order; elements of other types are left out.
  [[nodiscard]] std::vector<std::string> strings() const;

  /// Equal as the platform's objects compare: numbers by value whatever their type (and not-a-number equals itself),
  /// everything else by type and content.
  friend bool operator==(const PropertyList& left, const PropertyList& right);

 private:
  friend class PropertyListDocument;
  struct Storage;
  struct Node;

  // Numbers stand in the value itself; everything else points into its storage. A value that stands inside a container
  // of a document (see PropertyListDocument.h) is no counted reference to it; every copy taken from there is one.
  struct Content {
    union {
      std::uint64_t unsignedInteger = 0;
      std::int64_t integer;
      double real;
      const char* text;
      const std::byte* bytes;
      const PropertyList* elements;
      const Entry* entries;
    };
    Storage* storage = nullptr;
    std::uint64_t size : 56 = 0;
    std::uint64_t type : 7 = 0;
    std::uint64_t largeUnsigned : 1 = 0;
  };

  explicit PropertyList(const Content& content) : content_(content) {}
  static Content contentOf(Type type);
  static Content contentOf(Type type, std::size_t size);
  static PropertyList fromNode(Type type, Node* node, std::size_t size);
  static PropertyList fromSorted(std::span<const Entry> entries);
  void retain() const noexcept {
    if (content_.storage != nullptr) retain(content_.storage);
  }
  static void retain(Storage* storage) noexcept;
  static void release(Storage* storage) noexcept;
  static void giveUpChild(const PropertyList& child, Storage*& unused) noexcept;
  bool hasType(Type wanted) const { return content_.type == static_cast<std::uint64_t>(wanted); }
  static bool equalScalars(const PropertyList& left, const PropertyList& right);

  Content content_;
};

struct PropertyList::Entry {
  std::string_view key;
  PropertyList value;
};

}  // namespace foundation
