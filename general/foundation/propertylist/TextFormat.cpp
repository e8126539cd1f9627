#include "general/foundation/propertylist/TextFormat.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

#include "general/foundation/CalendarDate.h"
#include "general/foundation/Hexadecimal.h"
#include "general/foundation/Unicode.h"
#include "general/foundation/propertylist/PropertyListCodecs.h"

namespace foundation {

namespace {

constexpr std::string_view kNoText = "(null)";
constexpr std::size_t kIndentation = 4;
constexpr std::size_t kLargestWidth = 256;

bool isAsciiLetterOrDigit(char character) {
  return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
         (character >= 'a' && character <= 'z');
}

bool isPlainWord(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char character) {
    return isAsciiLetterOrDigit(character) || std::string_view("_./$:").find(character) != std::string_view::npos;
  });
}

void appendEscaped(std::string& output, char16_t unit) {
  switch (unit) {
    case u'"':
      output += "\\\"";
      return;
    case u'\\':
      output += "\\\\";
      return;
    case u'\n':
      output += "\\n";
      return;
    case u'\t':
      output += "\\t";
      return;
    default:
      break;
  }
  if (unit >= 0x20 && unit < 0x7F) {
    output.push_back(static_cast<char>(unit));
    return;
  }
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "\\U%04x", static_cast<unsigned>(unit));
  output += text.data();
}

void appendQuotedUnlessPlain(std::string& output, std::string_view text) {
  if (isPlainWord(text)) {
    output += text;
    return;
  }
  output.push_back('"');
  for (const char16_t unit : unicode::utf16FromUtf8(text)) appendEscaped(output, unit);
  output.push_back('"');
}

void appendReal(std::string& output, double value) {
  std::array<char, 40> text{};
  const auto written =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::general, /*precision=*/16);
  output.append(text.data(), written.ptr);
}

void appendNumber(std::string& output, const PropertyList& value) {
  if (value.isLargeUnsigned()) {
    output += std::to_string(*value.unsignedInteger());
  } else if (value.type() == PropertyList::Type::Real) {
    appendReal(output, *value.real());
  } else {
    output += std::to_string(*value.integer());
  }
}

void appendData(std::string& output, std::span<const std::byte> bytes) {
  output.append("<").append(hexadecimal::lowerCase(bytes)).append(">");
}

void appendDate(std::string& output, double seconds) {
  const auto date = CalendarDate::fromSecondsSince2001(seconds);
  if (!date) {
    appendReal(output, seconds);
    return;
  }
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d +0000", date->year, date->month, date->day,
                date->hour, date->minute, date->second);
  output += text.data();
}

void appendElement(std::string& output, const PropertyList& value, std::size_t depth);

void appendArray(std::string& output, const PropertyList& array, std::size_t depth) {
  output += "(";
  std::string_view separator = "\n";
  for (const PropertyList& element : array.elements()) {
    output += separator;
    output.append(kIndentation * (depth + 1), ' ');
    appendElement(output, element, depth + 1);
    separator = ",\n";
  }
  output += "\n";
  output.append(kIndentation * depth, ' ');
  output += ")";
}

void appendDictionary(std::string& output, const PropertyList& dictionary, std::size_t depth) {
  output += "{\n";
  for (const auto& [key, value] : dictionary.entries()) {
    output.append(kIndentation * (depth + 1), ' ');
    appendQuotedUnlessPlain(output, key);
    output += " = ";
    appendElement(output, value, depth + 1);
    output += ";\n";
  }
  output.append(kIndentation * depth, ' ');
  output += "}";
}

void appendElement(std::string& output, const PropertyList& value, std::size_t depth) {
  if ((value.isArray() || value.isDictionary()) && depth >= plist::kMaximumNesting) {
    output += "...";
    return;
  }
  switch (value.type()) {
    case PropertyList::Type::Nil:
      output += kNoText;
      break;
    case PropertyList::Type::Boolean:
    case PropertyList::Type::Integer:
    case PropertyList::Type::Real:
      appendNumber(output, value);
      break;
    case PropertyList::Type::String:
      appendQuotedUnlessPlain(output, value.text());
      break;
    case PropertyList::Type::Data:
      appendData(output, value.bytes());
      break;
    case PropertyList::Type::Date:
      appendDate(output, *value.secondsSince2001());
      break;
    case PropertyList::Type::Array:
      appendArray(output, value, depth);
      break;
    case PropertyList::Type::Dictionary:
      appendDictionary(output, value, depth);
      break;
  }
}

}  // namespace

// One "%..." of a format, taken apart.
struct FormatArgument::Conversion {
  bool zeroFilled = false;
  std::size_t width = 0;
  int longs = 0;
  char kind = '\0';
  std::string_view text;

  static Conversion parse(std::string_view format) {
    Conversion conversion;
    std::size_t at = 1;
    const auto current = [&] { return at < format.size() ? format[at] : '\0'; };
    if (current() == '0') {
      conversion.zeroFilled = true;
      ++at;
    }
    for (; current() >= '0' && current() <= '9'; ++at) {
      const auto digit = static_cast<std::size_t>(current() - '0');
      conversion.width = std::min(conversion.width * 10 + digit, kLargestWidth);
    }
    for (; current() == 'l' || current() == 'h'; ++at) conversion.longs += current() == 'l' ? 1 : 0;
    conversion.kind = current();
    conversion.text = format.substr(0, std::min(at + 1, format.size()));
    return conversion;
  }

  bool takesArgument() const { return kind != '\0' && std::string_view("@sdiux").find(kind) != std::string_view::npos; }

  void append(std::string& output, const FormatArgument& argument) const {
    if (kind == '@') {
      output += argument.asObject();
    } else if (kind == 's') {
      output += argument.asText().value_or(kNoText);
    } else {
      appendPadded(output, number(argument.asBits()));
    }
  }

  std::string number(std::uint64_t bits) const {
    if (kind == 'd' || kind == 'i') {
      return std::to_string(longs > 0 ? static_cast<std::int64_t>(bits)
                                      : static_cast<std::int32_t>(static_cast<std::uint32_t>(bits)));
    }
    const std::uint64_t value = longs > 0 ? bits : static_cast<std::uint32_t>(bits);
    std::array<char, 24> digits{};
    const auto written = std::to_chars(digits.data(), digits.data() + digits.size(), value, kind == 'x' ? 16 : 10);
    return std::string(digits.data(), written.ptr);
  }

  void appendPadded(std::string& output, std::string_view digits) const {
    const std::size_t missing = width > digits.size() ? width - digits.size() : 0;
    if (zeroFilled && digits.front() == '-') {
      output.push_back('-');
      digits.remove_prefix(1);
    }
    output.append(missing, zeroFilled ? '0' : ' ');
    output += digits;
  }
};

FormatArgument::FormatArgument(const char* text) {
  if (text != nullptr) content_ = std::string_view(text);
}

FormatArgument::FormatArgument(const std::optional<std::string>& text) {
  if (text) content_ = std::string_view(*text);
}

FormatArgument::FormatArgument(const std::optional<std::string_view>& text) {
  if (text) content_ = *text;
}

std::string FormatArgument::asObject() const {
  if (const auto* text = std::get_if<std::string_view>(&content_)) return std::string(*text);
  if (const auto* number = std::get_if<std::int64_t>(&content_)) return std::to_string(*number);
  if (const auto* number = std::get_if<std::uint64_t>(&content_)) return std::to_string(*number);
  if (const auto* value = std::get_if<const PropertyList*>(&content_)) return description(**value);
  if (const auto* texts = std::get_if<const std::vector<std::string>*>(&content_)) return description(**texts);
  if (const auto* error = std::get_if<const Error*>(&content_)) return (*error)->description();
  return std::string(kNoText);
}

std::optional<std::string_view> FormatArgument::asText() const {
  if (const auto* text = std::get_if<std::string_view>(&content_)) return *text;
  if (const auto* value = std::get_if<const PropertyList*>(&content_)) return (*value)->string();
  return std::nullopt;
}

std::uint64_t FormatArgument::asBits() const {
  if (const auto* number = std::get_if<std::int64_t>(&content_)) return static_cast<std::uint64_t>(*number);
  if (const auto* number = std::get_if<std::uint64_t>(&content_)) return *number;
  if (const auto* value = std::get_if<const PropertyList*>(&content_)) {
    if ((*value)->isLargeUnsigned()) return *(*value)->unsignedInteger();
    return static_cast<std::uint64_t>((*value)->integer().value_or(0));
  }
  return 0;
}

std::string description(const PropertyList& value) {
  if (value.isString()) return std::string(value.text());
  std::string output;
  appendElement(output, value, 0);
  return output;
}

std::string description(const std::vector<std::string>& texts) { return description(PropertyList(texts)); }

std::string formatArguments(std::string_view format, std::initializer_list<FormatArgument> arguments) {
  std::string output;
  const FormatArgument* next = arguments.begin();
  while (!format.empty()) {
    const std::size_t literal = std::min(format.find('%'), format.size());
    output += format.substr(0, literal);
    format.remove_prefix(literal);
    if (format.empty()) break;
    const auto conversion = FormatArgument::Conversion::parse(format);
    if (conversion.takesArgument()) {
      conversion.append(output, next != arguments.end() ? *next++ : FormatArgument(nullptr));
    } else {
      output += conversion.kind == '%' ? std::string_view("%") : conversion.text;
    }
    format.remove_prefix(conversion.text.size());
  }
  return output;
}

}  // namespace foundation
