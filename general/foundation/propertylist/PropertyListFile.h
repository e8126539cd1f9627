#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "general/foundation/Result.h"
#include "general/foundation/propertylist/PropertyList.h"

/// Property lists as bytes and as files, XML and binary.
///
/// Everything read here may come from outside. Nesting is limited to kMaximumNesting, every length is checked against
/// the bytes that are really there before anything is allocated, no external entity is ever read, and a document type
/// declaration can define nothing. What does not parse is an error of code 259, never a crash; see doesNotParse().
/// All functions may be called from any thread.
namespace foundation::plist {

enum class Format { Xml, Binary };

/// Parses either format, told apart by its first bytes.
[[nodiscard]] Result<PropertyList> parse(std::span<const std::byte> document);
[[nodiscard]] Result<PropertyList> parse(std::string_view document);

/// The document for a value. Fails (code 512) for nil, for values nested too deep, and for text that XML cannot carry.
[[nodiscard]] Result<std::string> serialize(const PropertyList& value, Format format);

/// Reads a file that holds a property list. Errors: those of reading a file, 259 when it does not parse, 263 when it is
/// larger than any property list may be, and 256 with ENOMEM when there was not enough memory for it.
[[nodiscard]] Result<PropertyList> readFile(const std::string& path);
/// As readFile, and 259 when the top level is no dictionary.
[[nodiscard]] Result<PropertyList> readDictionary(const std::string& path);
/// Whether reading failed because of what stands in the file, which was read: it is no property list of the kind.
[[nodiscard]] bool doesNotParse(const Error& error);
/// Writes the value as a whole or not at all; a reader sees the old content or the new. Mode 0644, owner the process.
[[nodiscard]] Status writeFile(const PropertyList& value, const std::string& path, Format format = Format::Xml);

}  // namespace foundation::plist
