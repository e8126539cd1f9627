#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "general/foundation/propertylist/PropertyList.h"

namespace foundation {

/// What counted values live in: a node of its own, or a whole document.
struct PropertyList::Storage {
  enum class Kind { Bytes, Elements, Entries, Document };

  explicit Storage(Kind storageKind) : kind(storageKind) {}

  std::atomic<std::size_t> references{1};
  const Kind kind;
  Storage* nextUnused = nullptr;  ///< chains what is about to be freed, so that freeing needs no recursion
};

/// The memory of one document that is being read, and the values in it: they are made without a count of their own,
/// laid side by side, and freed all at once with the last value that anybody still holds. For the readers only.
///
/// A reader makes values from the leaves up and ends with finish(). Until then the object belongs to one thread.
class PropertyListDocument {
 public:
  /// A value inside the document: trivially copied, meaningless once the document is gone.
  using Value = PropertyList::Content;

  PropertyListDocument();
  ~PropertyListDocument();
  PropertyListDocument(const PropertyListDocument&) = delete;
  PropertyListDocument& operator=(const PropertyListDocument&) = delete;

  /// Memory that lives as long as the document, aligned for anything. Throws std::bad_alloc.
  [[nodiscard]] std::byte* allocate(std::size_t bytes);

  [[nodiscard]] static Value boolean(bool value);
  [[nodiscard]] static Value integer(std::int64_t value);
  [[nodiscard]] static Value unsignedInteger(std::uint64_t value);
  [[nodiscard]] static Value real(double value);
  [[nodiscard]] static Value date(double secondsSince2001);
  /// The text or the bytes must stand in memory of this document.
  [[nodiscard]] Value string(std::string_view text);
  [[nodiscard]] Value data(std::span<const std::byte> bytes);
  [[nodiscard]] Value array(std::span<const Value> elements);
  /// Keys in the order of the document; of equal keys the last one counts. Keys must stand in memory of this document.
  [[nodiscard]] Value dictionary(std::span<const std::string_view> keys, std::span<const Value> values);

  /// The text of a string; nothing for any other type.
  [[nodiscard]] static std::optional<std::string_view> textOf(const Value& value);

  /// An equal key that was seen before, where one is remembered, so that the keys of many alike dictionaries stand
  /// close together in memory and compare fast.
  [[nodiscard]] std::string_view sharedKey(std::string_view key);

  /// The finished value. The document's memory now belongs to it and to its copies.
  [[nodiscard]] PropertyList finish(const Value& top);

 private:
  friend class PropertyList;
  struct Memory;
  struct Shape;

  static void destroy(PropertyList::Storage* memory);
  [[nodiscard]] Value place(PropertyList::Type type, std::size_t size);
  [[nodiscard]] Value sortedDictionary(std::span<const std::string_view> keys, std::span<const Value> values,
                                       std::span<const std::size_t> order);
  [[nodiscard]] static std::vector<std::size_t> sortedOrder(std::span<const std::string_view> keys);

  Memory* memory_;
  std::vector<std::string_view> rememberedKeys_;
  std::vector<Shape> shapes_;
};

}  // namespace foundation
