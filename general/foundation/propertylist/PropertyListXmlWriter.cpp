#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <string>

#include "general/foundation/CalendarDate.h"
#include "general/foundation/Unicode.h"
#include "general/foundation/propertylist/PropertyListCodecs.h"
#include "general/foundation/propertylist/XmlScreening.h"

namespace foundation::plist {

namespace {

constexpr std::string_view kProlog =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kEnd = "</plist>\n";
constexpr std::size_t kBase64BytesPerLine = 54;

std::string base64(std::span<const std::byte> bytes) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::size_t present = std::min<std::size_t>(3, bytes.size() - at);
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = (group << 8) | (i < present ? std::to_integer<std::uint32_t>(bytes[at + i]) : 0U);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      text.push_back(i <= present ? kDigits[(group >> (18 - 6 * i)) & 0x3FU] : '=');
    }
  }
  return text;
}

std::string realText(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-infinity" : "+infinity";
  std::array<char, 40> text{};
  const auto written = std::to_chars(text.data(), text.data() + text.size(), value);
  return std::string(text.data(), written.ptr);
}

/// Writes one value. The first thing that XML cannot carry ends it.
class XmlWriter {
 public:
  Result<std::string> write(const PropertyList& value) {
    output_ = kProlog;
    if (!writeValue(value, 0)) return writeError(fault_);
    output_ += kEnd;
    return std::move(output_);
  }

 private:
  bool fail(std::string_view what) {
    fault_ = what;
    return false;
  }

  void indent(int depth) { output_.append(static_cast<std::size_t>(depth), '\t'); }

  bool writeValue(const PropertyList& value, int depth) {
    indent(depth);
    switch (value.type()) {
      case PropertyList::Type::Nil:
        return fail("A property list cannot hold nil.");
      case PropertyList::Type::Boolean:
        output_ += *value.boolean() ? "<true/>\n" : "<false/>\n";
        return true;
      case PropertyList::Type::Integer:
        writeLine("integer", value.isLargeUnsigned() ? std::to_string(*value.unsignedInteger())
                                                     : std::to_string(*value.integer()));
        return true;
      case PropertyList::Type::Real:
        writeLine("real", realText(*value.real()));
        return true;
      case PropertyList::Type::String:
        return writeText("string", value.text());
      case PropertyList::Type::Data:
        writeData(value.bytes(), depth);
        return true;
      case PropertyList::Type::Date:
        return writeDate(*value.secondsSince2001());
      case PropertyList::Type::Array:
        return writeArray(value, depth);
      case PropertyList::Type::Dictionary:
        return writeDictionary(value, depth);
    }
    return fail("A value of an unknown type.");
  }

  void writeLine(std::string_view tag, std::string_view escapedText) {
    ((output_ += '<') += tag) += '>';
    output_ += escapedText;
    ((output_ += "</") += tag) += ">\n";
  }

  bool writeText(std::string_view tag, std::string_view text) {
    ((output_ += '<') += tag) += '>';
    if (!writeEscaped(text)) return false;
    ((output_ += "</") += tag) += ">\n";
    return true;
  }

  bool writeEscaped(std::string_view text) {
    while (!text.empty()) {
      const auto decoded = unicode::firstCodePoint(text);
      if (!decoded) return fail("A text is not valid Unicode.");
      if (!isXmlCharacter(decoded->codePoint)) return fail("A text holds a character that XML cannot carry.");
      switch (text.front()) {
        case '&':
          output_ += "&amp;";
          break;
        case '<':
          output_ += "&lt;";
          break;
        case '>':
          output_ += "&gt;";
          break;
        case '\r':
          // As itself it would be read as a line feed.
          output_ += "&#13;";
          break;
        default:
          output_ += text.substr(0, decoded->length);
      }
      text.remove_prefix(decoded->length);
    }
    return true;
  }

  void writeData(std::span<const std::byte> bytes, int depth) {
    output_ += "<data>\n";
    for (std::size_t at = 0; at < bytes.size(); at += kBase64BytesPerLine) {
      indent(depth);
      output_ += base64(bytes.subspan(at, std::min(kBase64BytesPerLine, bytes.size() - at)));
      output_ += '\n';
    }
    indent(depth);
    output_ += "</data>\n";
  }

  bool writeDate(double seconds) {
    const auto date = CalendarDate::fromSecondsSince2001(seconds);
    if (!date) return fail("A date is outside of the years that XML can carry.");
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02dZ", date->year, date->month, date->day,
                  date->hour, date->minute, date->second);
    writeLine("date", text.data());
    return true;
  }

  bool writeArray(const PropertyList& array, int depth) {
    if (depth >= kMaximumNesting) return fail("Values are nested too deep.");
    if (array.count() == 0) {
      output_ += "<array/>\n";
      return true;
    }
    output_ += "<array>\n";
    for (const PropertyList& element : array.elements()) {
      if (!writeValue(element, depth + 1)) return false;
    }
    indent(depth);
    output_ += "</array>\n";
    return true;
  }

  bool writeDictionary(const PropertyList& dictionary, int depth) {
    if (depth >= kMaximumNesting) return fail("Values are nested too deep.");
    if (dictionary.count() == 0) {
      output_ += "<dict/>\n";
      return true;
    }
    output_ += "<dict>\n";
    for (const auto& [key, value] : dictionary.entries()) {
      indent(depth + 1);
      if (!writeText("key", key) || !writeValue(value, depth + 1)) return false;
    }
    indent(depth);
    output_ += "</dict>\n";
    return true;
  }

  std::string output_;
  std::string_view fault_;
};

}  // namespace

Result<std::string> serializeXml(const PropertyList& value) { return XmlWriter().write(value); }

}  // namespace foundation::plist
