#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

/// The few conversions between Unicode's encodings that property lists and messages need. Nothing here is lenient:
/// overlong forms, lone surrogates and numbers beyond U+10FFFF are errors.
namespace foundation::unicode {

/// A code point and the number of bytes it takes.
struct Decoded {
  char32_t codePoint;
  std::size_t length;
};

/// The first code point of UTF-8 text; nothing when the text is empty or does not begin with a valid one.
[[nodiscard]] std::optional<Decoded> firstCodePoint(std::string_view text);
[[nodiscard]] bool isValidUtf8(std::string_view text);
void appendUtf8(std::string& text, char32_t codePoint);

enum class ByteOrder { BigEndian, LittleEndian };
/// UTF-16 as UTF-8; nothing for an odd number of bytes or an invalid surrogate.
[[nodiscard]] std::optional<std::string> utf8FromUtf16(std::span<const std::byte> bytes, ByteOrder order);
/// Valid UTF-8 as UTF-16 code units; each byte of anything invalid becomes U+FFFD.
[[nodiscard]] std::u16string utf16FromUtf8(std::string_view text);

}  // namespace foundation::unicode
