#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "general/foundation/Error.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace foundation {

/// One argument of format(): whatever a message can print. Borrowed, for the length of the call.
class FormatArgument {
 public:
  FormatArgument(std::nullptr_t) {}
  FormatArgument(const char* text);
  FormatArgument(std::string_view text) : content_(text) {}
  FormatArgument(const std::string& text) : content_(std::string_view(text)) {}
  FormatArgument(const std::optional<std::string>& text);
  FormatArgument(const std::optional<std::string_view>& text);
  FormatArgument(bool value) : content_(std::int64_t{value ? 1 : 0}) {}
  template <std::signed_integral Integer>
  FormatArgument(Integer value) : content_(static_cast<std::int64_t>(value)) {}
  template <std::unsigned_integral Integer>
  requires(!std::same_as<Integer, bool>) FormatArgument(Integer value) : content_(static_cast<std::uint64_t>(value)) {}
  FormatArgument(const PropertyList& value) : content_(&value) {}
  FormatArgument(const std::vector<std::string>& texts) : content_(&texts) {}
  FormatArgument(const Error& error) : content_(&error) {}

 private:
  friend std::string formatArguments(std::string_view format, std::initializer_list<FormatArgument> arguments);
  std::variant<std::monostate, std::string_view, std::int64_t, std::uint64_t, const PropertyList*,
               const std::vector<std::string>*, const Error*>
      content_;

  struct Conversion;
  [[nodiscard]] std::string asObject() const;
  /// The text of a text; nothing for everything else.
  [[nodiscard]] std::optional<std::string_view> asText() const;
  /// The number of a number in two's complement; 0 for everything else.
  [[nodiscard]] std::uint64_t asBits() const;
};

/// How a value prints for `%@`: text as it is, nil as (null), numbers in decimal and booleans as 1 or 0; an array as
/// "(", one element per line indented by four blanks and separated by commas, ")"; a dictionary as "{", lines of
/// `    key = value;` sorted by key, "}". Strings inside collections are quoted unless they are plain words; data
/// prints as <hex>, dates as `yyyy-MM-dd HH:mm:ss +0000`. The depth of indentation grows with the nesting; what is
/// nested deeper than plist::kMaximumNesting prints as "...".
[[nodiscard]] std::string description(const PropertyList& value);
[[nodiscard]] std::string description(const std::vector<std::string>& texts);

[[nodiscard]] std::string formatArguments(std::string_view format, std::initializer_list<FormatArgument> arguments);

/// Formats a message. Conversions: %@ (any argument), %s (text), %d %i %u %x with the lengths h, l, ll (an integer is
/// cut to 32 bits unless l or ll is given), flags 0 and width for numbers, %%.
///
/// The format is trusted text of this program; arguments are not. A conversion without a fitting argument prints
/// "(null)" for texts and 0 for numbers, and nothing is ever read that was not passed. Other conversions print as they
/// stand and take no argument.
template <class... Arguments>
[[nodiscard]] std::string format(std::string_view text, const Arguments&... arguments) {
  return formatArguments(text, {FormatArgument(arguments)...});
}

}  // namespace foundation
