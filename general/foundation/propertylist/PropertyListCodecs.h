#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "general/foundation/Result.h"
#include "general/foundation/propertylist/PropertyList.h"

/// The two formats of property lists, one reader and one writer each. Callers use PropertyListFile.h.
namespace foundation::plist {

/// Deepest nesting of arrays and dictionaries that is read and written.
inline constexpr int kMaximumNesting = 512;
/// What a document larger than this says is not wanted by anybody here.
inline constexpr std::size_t kMaximumDocumentSize = std::size_t{1} << 30;
inline constexpr std::string_view kBinaryMagic = "bplist00";

/// An error of the file domain: kReadCorrupt for readers, kWriteUnknown for writers.
[[nodiscard]] Error readError(std::string_view text);
[[nodiscard]] Error writeError(std::string_view text);

[[nodiscard]] Result<PropertyList> parseXml(std::string_view document);
[[nodiscard]] Result<PropertyList> parseBinary(std::span<const std::byte> document);
[[nodiscard]] Result<std::string> serializeXml(const PropertyList& value);
[[nodiscard]] Result<std::string> serializeBinary(const PropertyList& value);

}  // namespace foundation::plist
