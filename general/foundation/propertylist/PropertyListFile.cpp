#include "general/foundation/propertylist/PropertyListFile.h"

#include <cerrno>
#include <new>
#include <stdexcept>

#include "general/foundation/files/FileManager.h"
#include "general/foundation/propertylist/PropertyListCodecs.h"

namespace foundation::plist {

namespace {

Error plainError(FileErrorCode code, std::string_view text) {
  Error error;
  error.domain = kFileErrorDomain;
  error.code = code;
  error.text = text;
  return error;
}

Error withPath(Error error, const std::string& path) {
  error.path = path;
  return error;
}

}  // namespace

Error readError(std::string_view text) { return plainError(kReadCorrupt, text); }
Error writeError(std::string_view text) { return plainError(kWriteUnknown, text); }

Result<PropertyList> parse(std::span<const std::byte> document) {
  return parse(std::string_view(reinterpret_cast<const char*>(document.data()), document.size()));
}

Result<PropertyList> parse(std::string_view document) {
  if (document.size() > kMaximumDocumentSize) return plainError(kReadTooLarge, "The property list is too large.");
  try {
    if (document.starts_with(kBinaryMagic)) return parseBinary(std::as_bytes(std::span(document)));
    return parseXml(document);
  } catch (const std::bad_alloc&) {
    // Says nothing of the document: with more memory it may be a good one.
    Error error = plainError(kReadUnknown, "There is not enough memory for the property list.");
    error.underlyingErrno = ENOMEM;
    return error;
  } catch (const std::length_error&) {
    return readError("There is not enough memory for the property list.");
  }
}

Result<std::string> serialize(const PropertyList& value, Format format) {
  return format == Format::Xml ? serializeXml(value) : serializeBinary(value);
}

Result<PropertyList> readFile(const std::string& path) {
  const auto status = files::attributesOfItem(path);
  if (status.ok() && status->size > kMaximumDocumentSize) {
    return withPath(plainError(kReadTooLarge, "The property list is too large."), path);
  }
  FileBuffer buffer;
  const auto content = files::read(path, buffer);
  if (!content) return content.error();
  auto value = parse(*content);
  if (!value) return withPath(value.error(), path);
  return value;
}

Result<PropertyList> readDictionary(const std::string& path) {
  auto value = readFile(path);
  if (value && !value->isDictionary()) {
    return withPath(readError("The property list is not valid: its top level is no dictionary."), path);
  }
  return value;
}

bool doesNotParse(const Error& error) {
  return error.code == kReadCorrupt || (error.code == kReadTooLarge && error.underlyingErrno == 0);
}

Status writeFile(const PropertyList& value, const std::string& path, Format format) {
  const auto document = serialize(value, format);
  if (!document) return withPath(document.error(), path);
  return files::writeAtomically(std::as_bytes(std::span(*document)), path);
}

}  // namespace foundation::plist
