#include "general/foundation/propertylist/XmlScreening.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <string>

#include "general/foundation/Unicode.h"

namespace foundation::plist {

namespace {

constexpr std::size_t kChunk = 64;
constexpr std::size_t kVector = 16;
constexpr std::string_view kWhiteSpace = " \t\r\n";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
// "&#x10FFFF;" is the longest that anybody writes; some leading zeros more are fine.
constexpr std::size_t kLongestReference = 32;

// This looks at every byte of a document, so it is written in vectors, which both compilers know on every processor.
// As signed bytes, those outside of ASCII are below the blank like control characters. The steps yield 0 or -1 per
// byte.
bool needsAttention(const char* chunk) {
  using Bytes [[gnu::vector_size(kVector)]] = signed char;
  Bytes found{};
  for (std::size_t i = 0; i < kChunk; i += kVector) {
    Bytes bytes;
    std::memcpy(&bytes, chunk + i, kVector);
    found |= (bytes < 0x20) & (bytes != '\t') & (bytes != '\n') & (bytes != '\r');
    found |= (bytes == '&') | (bytes == '!') | (bytes == '?');
  }
  std::array<std::uint64_t, kVector / sizeof(std::uint64_t)> words{};
  std::memcpy(words.data(), &found, kVector);
  return (words[0] | words[1]) != 0;
}

bool isNumericReference(std::string_view name) {
  name.remove_prefix(1);
  const bool isHexadecimal = name.starts_with('x');
  if (isHexadecimal) name.remove_prefix(1);
  std::uint32_t value = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), value, isHexadecimal ? 16 : 10);
  return error == std::errc() && end == name.data() + name.size() && isXmlCharacter(value);
}

// Length of the reference that begins with the '&' at the front; 0 when XML itself does not define it.
std::size_t referenceLength(std::string_view text) {
  const std::size_t end = text.substr(0, kLongestReference).find(';');
  if (end == std::string_view::npos) return 0;
  const std::string_view name = text.substr(1, end - 1);
  constexpr std::array<std::string_view, 5> kNames = {"amp", "lt", "gt", "quot", "apos"};
  const bool defined =
      name.starts_with('#') ? isNumericReference(name) : std::ranges::find(kNames, name) != kNames.end();
  return defined ? end + 1 : 0;
}

// Offset behind the section that starts at `start` and ends with `terminator`; the end of the document if it never
// ends.
std::size_t behind(std::string_view document, std::size_t start, std::string_view terminator) {
  const std::size_t end = document.find(terminator, start);
  return end == std::string_view::npos ? document.size() : end + terminator.size();
}

std::string lowercase(std::string_view text) {
  std::string result(text);
  for (char& character : result) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
  }
  return result;
}

}  // namespace

bool isXmlCharacter(char32_t character) {
  if (character < 0x20) return character == '\t' || character == '\n' || character == '\r';
  return character < 0xD800 || (character > 0xDFFF && character < 0xFFFE) ||
         (character > 0xFFFF && character <= 0x10FFFF);
}

XmlScreening::XmlScreening(std::string_view document, Encoding encoding) : document_(document) {
  screenProlog(encoding);
  if (!fault_) screenCharacters();
  if (!fault_ && hasDoubtfulReference_) screenReferencesOutsideMarkup();
}

void XmlScreening::fail(std::size_t offset, std::string_view text) {
  if (!fault_) fault_ = XmlFault{offset, text};
}

void XmlScreening::screenProlog(Encoding encoding) {
  std::size_t at = document_.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
  const std::size_t start = at;
  while (!fault_) {
    at = std::min(document_.find_first_not_of(kWhiteSpace, at), document_.size());
    const std::string_view rest = document_.substr(at);
    if (rest.starts_with("<?")) {
      const std::size_t end = behind(document_, at, "?>");
      const bool isDeclaration = rest.starts_with("<?xml") && rest.find_first_of(kWhiteSpace) == 5;
      if (isDeclaration && at != start) fail(at, "declaration is not at the start");
      if (isDeclaration) screenDeclaration(rest.substr(0, end - at), encoding);
      at = end;
    } else if (rest.starts_with("<!--")) {
      at = behind(document_, at + 4, "-->");
    } else if (rest.starts_with("<!DOCTYPE")) {
      at = endOfDocumentType(at);
    } else if (rest.starts_with('<')) {
      contentOffset_ = at;
      return;
    } else {
      fail(at, rest.empty() ? "no document element" : "not a property list");
    }
  }
}

void XmlScreening::screenDeclaration(std::string_view declaration, Encoding encoding) {
  const std::size_t attribute = declaration.find("encoding");
  if (attribute == std::string_view::npos) return;
  const std::size_t open = declaration.find_first_of("\"'", attribute);
  if (open == std::string_view::npos) return fail(attribute, "bad declaration");
  const std::size_t close = declaration.find(declaration[open], open + 1);
  if (close == std::string_view::npos) return fail(attribute, "bad declaration");
  const std::string name = lowercase(declaration.substr(open + 1, close - open - 1));
  const bool known = encoding == Encoding::Utf16 ? name.starts_with("utf-16") : name == "utf-8" || name == "us-ascii";
  if (!known) fail(attribute, "unsupported encoding");
}

// A bracket would open declarations of its own, which is how a document defines entities.
std::size_t XmlScreening::endOfDocumentType(std::size_t start) {
  for (std::size_t at = document_.find_first_of("[>\"'", start); at != std::string_view::npos;
       at = document_.find_first_of("[>\"'", at + 1)) {
    if (document_[at] == '>') return at + 1;
    if (document_[at] == '[') {
      fail(at, "document type with declarations of its own");
      return at;
    }
    at = document_.find(document_[at], at + 1);
    if (at == std::string_view::npos) break;
  }
  fail(start, "document type without an end");
  return start;
}

void XmlScreening::screenCharacters() {
  std::size_t at = document_.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
  while (at < document_.size() && !fault_) {
    if (document_.size() - at >= kChunk && !needsAttention(document_.data() + at)) {
      at += kChunk;
      continue;
    }
    const std::size_t chunkEnd = std::min(at + kChunk, document_.size());
    while (at < chunkEnd && !fault_) at += screenOne(at);
  }
}

std::size_t XmlScreening::screenOne(std::size_t at) {
  const char byte = document_[at];
  if (byte == '&') {
    const std::size_t length = referenceLength(document_.substr(at));
    if (length == 0) hasDoubtfulReference_ = true;
    return std::max<std::size_t>(length, 1);
  }
  if ((byte == '!' || byte == '?') && at > contentOffset_ && document_[at - 1] == '<') hasInnerMarkup_ = true;
  const auto decoded = unicode::firstCodePoint(document_.substr(at));
  if (!decoded) {
    fail(at, "text that is not UTF-8");
    return 1;
  }
  if (!isXmlCharacter(decoded->codePoint)) fail(at, "character that XML does not allow");
  return decoded->length;
}

// An ampersand means nothing inside of comments, CDATA sections and processing instructions.
void XmlScreening::screenReferencesOutsideMarkup() {
  std::size_t at = document_.find_first_of("<&", contentOffset_);
  while (at != std::string_view::npos) {
    const std::string_view rest = document_.substr(at);
    std::size_t next = at + 1;
    if (rest.starts_with("<!--")) {
      next = behind(document_, at + 4, "-->");
    } else if (rest.starts_with("<![CDATA[")) {
      next = behind(document_, at, "]]>");
    } else if (rest.starts_with("<?")) {
      next = behind(document_, at, "?>");
    } else if (rest.front() == '&') {
      const std::size_t length = referenceLength(rest);
      if (length == 0) return fail(at, "reference to nothing that XML defines");
      next = at + length;
    }
    at = document_.find_first_of("<&", next);
  }
}

}  // namespace foundation::plist
