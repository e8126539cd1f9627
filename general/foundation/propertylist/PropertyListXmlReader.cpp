#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "general/foundation/CalendarDate.h"
#include "general/foundation/Unicode.h"
#include "general/foundation/propertylist/PropertyListCodecs.h"
#include "general/foundation/propertylist/PropertyListDocument.h"
#include "general/foundation/propertylist/XmlScreening.h"

namespace foundation::plist {

namespace {

using Value = PropertyListDocument::Value;

// A document type behind the prolog becomes a node and with it an error.
constexpr unsigned kParseOptions = pugi::parse_escapes | pugi::parse_eol | pugi::parse_cdata | pugi::parse_doctype |
                                   pugi::parse_fragment | pugi::parse_embed_pcdata;
constexpr std::string_view kWhiteSpace = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kWhiteSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

bool isBlank(std::string_view text) { return text.find_first_not_of(kWhiteSpace) == std::string_view::npos; }

std::optional<Value> parseInteger(std::string_view text) {
  text = trimmed(text);
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (isHexadecimal) text.remove_prefix(2);
  std::uint64_t magnitude = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), magnitude, isHexadecimal ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if (!isNegative) return PropertyListDocument::unsignedInteger(magnitude);
  if (magnitude > std::uint64_t{1} << 63) return std::nullopt;
  return PropertyListDocument::integer(static_cast<std::int64_t>(-magnitude));
}

std::size_t skipDigits(std::string_view text, std::size_t at) {
  return std::min(text.find_first_not_of("0123456789", at), text.size());
}

// The C library also reads hexadecimal reals, which no property list has.
bool isDecimalReal(std::string_view text) {
  std::size_t at = text.starts_with('-') || text.starts_with('+') ? 1 : 0;
  const std::size_t wholeStart = at;
  at = skipDigits(text, at);
  std::size_t digits = at - wholeStart;
  if (at < text.size() && text[at] == '.') {
    const std::size_t fractionStart = ++at;
    at = skipDigits(text, at);
    digits += at - fractionStart;
  }
  if (digits == 0) return false;
  if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
    ++at;
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
    const std::size_t exponentStart = at;
    at = skipDigits(text, at);
    if (at == exponentStart) return false;
  }
  return at == text.size();
}

std::optional<double> specialReal(std::string text) {
  for (char& character : text) character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
  if (text == "nan") return std::numeric_limits<double>::quiet_NaN();
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.erase(0, 1);
  if (text != "inf" && text != "infinity") return std::nullopt;
  return isNegative ? -std::numeric_limits<double>::infinity() : std::numeric_limits<double>::infinity();
}

std::optional<double> parseReal(std::string_view text) {
  const std::string number(trimmed(text));
  if (!isDecimalReal(number)) return specialReal(number);
  const double value = std::strtod(number.c_str(), nullptr);
  if (std::isinf(value)) return std::nullopt;
  return value;
}

int base64Digit(char character) {
  if (character >= 'A' && character <= 'Z') return character - 'A';
  if (character >= 'a' && character <= 'z') return character - 'a' + 26;
  if (character >= '0' && character <= '9') return character - '0' + 52;
  if (character == '+') return 62;
  return character == '/' ? 63 : -1;
}

enum class Tag { Unknown, String, Integer, True, False, Dictionary, Array, Key, Real, Data, Date };

Tag tagOf(const char* name) {
  const auto is = [name](const char* wanted) { return std::strcmp(name, wanted) == 0; };
  switch (name[0]) {
    case 's':
      return is("string") ? Tag::String : Tag::Unknown;
    case 'i':
      return is("integer") ? Tag::Integer : Tag::Unknown;
    case 't':
      return is("true") ? Tag::True : Tag::Unknown;
    case 'f':
      return is("false") ? Tag::False : Tag::Unknown;
    case 'k':
      return is("key") ? Tag::Key : Tag::Unknown;
    case 'a':
      return is("array") ? Tag::Array : Tag::Unknown;
    case 'r':
      return is("real") ? Tag::Real : Tag::Unknown;
    case 'd':
      if (is("dict")) return Tag::Dictionary;
      if (is("data")) return Tag::Data;
      return is("date") ? Tag::Date : Tag::Unknown;
    default:
      return Tag::Unknown;
  }
}

Error faultError(std::string_view document, std::size_t offset, std::string_view what) {
  offset = std::min(offset, document.size());
  const auto lines = std::count(document.begin(), document.begin() + static_cast<std::ptrdiff_t>(offset), '\n');
  return readError("The property list is not valid: " + std::string(what) + " in line " + std::to_string(lines + 1) +
                   ", byte " + std::to_string(offset) + ".");
}

/// Turns the parser's nodes into values. Texts stay where the parser left them, in memory of the document.
class XmlReader {
 public:
  XmlReader(std::string_view source, const XmlScreening& screening) : source_(source), screening_(screening) {}

  Result<PropertyList> read() {
    const std::string_view content = source_.substr(screening_.contentOffset());
    char* body = reinterpret_cast<char*>(document_.allocate(content.size() + 1));
    std::copy(content.begin(), content.end(), body);
    // With a blank at the end the parser need not remember the character that its terminator replaces.
    body[content.size()] = '\n';
    // Blank texts matter only next to inner markup; elsewhere leaving them out saves half of the parser's time.
    const unsigned options =
        kParseOptions | (screening_.hasInnerMarkup() ? pugi::parse_ws_pcdata : pugi::parse_ws_pcdata_single);
    pugi::xml_document nodes;
    const pugi::xml_parse_result parsed =
        nodes.load_buffer_inplace(body, content.size() + 1, options, pugi::encoding_utf8);
    if (parsed.status == pugi::status_out_of_memory) throw std::bad_alloc();
    if (!parsed) return error(static_cast<std::size_t>(std::max<std::ptrdiff_t>(parsed.offset, 0)), "bad XML");
    if (!readDocument(nodes)) return error(faultOffset_, fault_);
    return document_.finish(values_.back());
  }

 private:
  Error error(std::size_t offset, std::string_view what) const {
    return faultError(source_, screening_.contentOffset() + offset, what);
  }

  bool fail(pugi::xml_node node, std::string_view what) {
    fault_ = what;
    faultOffset_ = static_cast<std::size_t>(std::max<std::ptrdiff_t>(node.offset_debug(), 0));
    return false;
  }

  // Moves on to the next element, over blank text only. True also at the end, where the node is none.
  bool findElement(pugi::xml_node& node) {
    for (; node && node.name()[0] == '\0'; node = node.next_sibling()) {
      if (node.type() != pugi::node_pcdata || !isBlank(node.value())) return fail(node, "text outside of a value");
    }
    return true;
  }

  bool findFirstElement(pugi::xml_node container, pugi::xml_node& first) {
    if (container.value()[0] != '\0' && !isBlank(container.value())) return fail(container, "text outside of a value");
    first = container.first_child();
    return findElement(first);
  }

  bool readDocument(const pugi::xml_document& nodes) {
    pugi::xml_node root = nodes.first_child();
    if (!findElement(root)) return false;
    if (!root || std::strcmp(root.name(), "plist") != 0) return fail(root, "document element is not plist");
    pugi::xml_node behind = root.next_sibling();
    if (!findElement(behind)) return false;
    if (behind) return fail(behind, "element behind the property list");
    pugi::xml_node top;
    if (!findFirstElement(root, top)) return false;
    if (!top) return fail(root, "plist without a value");
    if (!appendValue(top, 0)) return false;
    behind = top.next_sibling();
    if (!findElement(behind)) return false;
    return !behind || fail(behind, "plist with more than one value");
  }

  bool appendValue(pugi::xml_node node, int depth) {
    switch (tagOf(node.name())) {
      case Tag::String:
        return appendString(node);
      case Tag::Integer:
        return appendScalar(node, parseInteger, "bad integer");
      case Tag::True:
        return appendBoolean(node, true);
      case Tag::False:
        return appendBoolean(node, false);
      case Tag::Dictionary:
        return appendDictionary(node, depth);
      case Tag::Array:
        return appendArray(node, depth);
      case Tag::Real:
        return appendScalar(node, realValue, "bad real");
      case Tag::Date:
        return appendScalar(node, dateValue, "bad date");
      case Tag::Data:
        return appendData(node);
      case Tag::Key:
        return fail(node, "key outside of a dictionary or without a value");
      case Tag::Unknown:
        break;
    }
    return fail(node, "unknown element");
  }

  static std::optional<Value> realValue(std::string_view text) {
    const auto value = parseReal(text);
    if (!value) return std::nullopt;
    return PropertyListDocument::real(*value);
  }

  static std::optional<Value> dateValue(std::string_view text) {
    const auto date = CalendarDate::parse(trimmed(text));
    if (!date) return std::nullopt;
    return PropertyListDocument::date(date->secondsSince2001());
  }

  // The text of an element without child elements.
  bool readText(pugi::xml_node node, std::string_view& text) {
    text = node.value();
    const pugi::xml_node child = node.first_child();
    return !child || joinText(node, child, text);
  }

  bool joinText(pugi::xml_node node, pugi::xml_node first, std::string_view& text) {
    std::string joined(node.value());
    for (pugi::xml_node part = first; part; part = part.next_sibling()) {
      if (part.type() != pugi::node_pcdata && part.type() != pugi::node_cdata) {
        return fail(part, "element inside of a text");
      }
      joined += part.value();
    }
    char* memory = reinterpret_cast<char*>(document_.allocate(joined.size()));
    std::copy(joined.begin(), joined.end(), memory);
    text = std::string_view(memory, joined.size());
    return true;
  }

  bool appendString(pugi::xml_node node) {
    std::string_view text;
    if (!readText(node, text)) return false;
    values_.push_back(document_.string(text));
    return true;
  }

  bool appendScalar(pugi::xml_node node, std::optional<Value> (*parseText)(std::string_view), std::string_view what) {
    std::string_view text;
    if (!readText(node, text)) return false;
    const auto value = parseText(text);
    if (!value) return fail(node, what);
    values_.push_back(*value);
    return true;
  }

  bool appendBoolean(pugi::xml_node node, bool value) {
    std::string_view text;
    if (!readText(node, text)) return false;
    if (!isBlank(text)) return fail(node, "boolean with a text");
    values_.push_back(PropertyListDocument::boolean(value));
    return true;
  }

  bool appendData(pugi::xml_node node) {
    std::string_view text;
    if (!readText(node, text)) return false;
    std::byte* bytes = document_.allocate(text.size() / 4 * 3 + 3);
    std::size_t count = 0;
    std::size_t digits = 0;
    std::size_t padding = 0;
    std::uint32_t group = 0;
    for (const char character : text) {
      if (kWhiteSpace.find(character) != std::string_view::npos) continue;
      const int digit = character == '=' ? 0 : base64Digit(character);
      if (character == '=') ++padding;
      if (digit < 0 || (padding > 0 && character != '=')) return fail(node, "bad base64");
      group = (group << 6) | static_cast<std::uint32_t>(digit);
      if (++digits % 4 != 0) continue;
      for (std::size_t i = 0; i + padding < 3; ++i) bytes[count++] = static_cast<std::byte>(group >> (16 - 8 * i));
      group = 0;
      if (padding > 2) return fail(node, "bad base64");
    }
    if (digits % 4 != 0 || padding > 2) return fail(node, "bad base64");
    values_.push_back(document_.data({bytes, count}));
    return true;
  }

  bool appendArray(pugi::xml_node node, int depth) {
    if (depth >= kMaximumNesting) return fail(node, "too deep a nesting");
    const std::size_t firstValue = values_.size();
    pugi::xml_node element;
    if (!findFirstElement(node, element)) return false;
    while (element) {
      if (!appendValue(element, depth + 1)) return false;
      element = element.next_sibling();
      if (!findElement(element)) return false;
    }
    const Value array = document_.array(std::span(values_).subspan(firstValue));
    values_.resize(firstValue);
    values_.push_back(array);
    return true;
  }

  bool appendDictionary(pugi::xml_node node, int depth) {
    if (depth >= kMaximumNesting) return fail(node, "too deep a nesting");
    const std::size_t firstKey = keys_.size();
    const std::size_t firstValue = values_.size();
    pugi::xml_node element;
    if (!findFirstElement(node, element)) return false;
    while (element) {
      if (!appendPair(element, depth)) return false;
    }
    const Value dictionary =
        document_.dictionary(std::span(keys_).subspan(firstKey), std::span(values_).subspan(firstValue));
    keys_.resize(firstKey);
    values_.resize(firstValue);
    values_.push_back(dictionary);
    return true;
  }

  // Reads a key and its value and moves on to the next key.
  bool appendPair(pugi::xml_node& element, int depth) {
    if (tagOf(element.name()) != Tag::Key) return fail(element, "dictionary with a value that has no key");
    std::string_view key;
    if (!readText(element, key)) return false;
    const pugi::xml_node keyNode = element;
    element = element.next_sibling();
    if (!findElement(element)) return false;
    if (!element) return fail(keyNode, "key without a value");
    keys_.push_back(document_.sharedKey(key));
    if (!appendValue(element, depth + 1)) return false;
    element = element.next_sibling();
    return findElement(element);
  }

  std::string_view source_;
  const XmlScreening& screening_;
  PropertyListDocument document_;
  // What is being read at every depth, the innermost last: containers take theirs when they are complete.
  std::vector<std::string_view> keys_;
  std::vector<Value> values_;
  std::string_view fault_;
  std::size_t faultOffset_ = 0;
};

Result<PropertyList> parseUtf8(std::string_view document, XmlScreening::Encoding encoding) {
  const XmlScreening screening(document, encoding);
  if (screening.fault()) return faultError(document, screening.fault()->offset, screening.fault()->text);
  return XmlReader(document, screening).read();
}

std::optional<unicode::ByteOrder> utf16Order(std::string_view document) {
  using namespace std::string_view_literals;
  if (document.starts_with("\xFE\xFF"sv) || document.starts_with("\0<"sv)) return unicode::ByteOrder::BigEndian;
  if (document.starts_with("\xFF\xFE"sv) || document.starts_with("<\0"sv)) return unicode::ByteOrder::LittleEndian;
  return std::nullopt;
}

}  // namespace

Result<PropertyList> parseXml(std::string_view document) {
  const auto order = utf16Order(document);
  if (!order) return parseUtf8(document, XmlScreening::Encoding::Utf8);
  const auto text = unicode::utf8FromUtf16(std::as_bytes(std::span(document)), *order);
  if (!text) return readError("The property list is not valid: text that is not UTF-16.");
  return parseUtf8(*text, XmlScreening::Encoding::Utf16);
}

}  // namespace foundation::plist
