#include "general/foundation/Unicode.h"

#include <cstdint>

namespace foundation::unicode {

namespace {

constexpr char32_t kFirstSurrogate = 0xD800;
constexpr char32_t kFirstLowSurrogate = 0xDC00;
constexpr char32_t kLastSurrogate = 0xDFFF;
constexpr char32_t kFirstSupplementary = 0x10000;
constexpr char32_t kLastCodePoint = 0x10FFFF;
constexpr char16_t kReplacement = 0xFFFD;

std::size_t sequenceLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF4) return 4;
  return 0;
}

char32_t smallestOfLength(std::size_t length) {
  if (length == 4) return kFirstSupplementary;
  return length == 3 ? 0x800 : 0x80;
}

}  // namespace

std::optional<Decoded> firstCodePoint(std::string_view text) {
  if (text.empty()) return std::nullopt;
  const auto lead = static_cast<unsigned char>(text.front());
  const std::size_t length = sequenceLength(lead);
  if (length == 1) return Decoded{lead, 1};
  if (length == 0 || length > text.size()) return std::nullopt;
  char32_t value = lead & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xC0U) != 0x80U) return std::nullopt;
    value = (value << 6) | (next & 0x3FU);
  }
  const bool isSurrogate = value >= kFirstSurrogate && value <= kLastSurrogate;
  if (value < smallestOfLength(length) || isSurrogate || value > kLastCodePoint) return std::nullopt;
  return Decoded{value, length};
}

bool isValidUtf8(std::string_view text) {
  while (!text.empty()) {
    const auto decoded = firstCodePoint(text);
    if (!decoded) return false;
    text.remove_prefix(decoded->length);
  }
  return true;
}

void appendUtf8(std::string& text, char32_t codePoint) {
  const auto put = [&](char32_t byte) { text.push_back(static_cast<char>(static_cast<unsigned char>(byte))); };
  if (codePoint < 0x80) {
    put(codePoint);
  } else if (codePoint < 0x800) {
    put(0xC0 | (codePoint >> 6));
    put(0x80 | (codePoint & 0x3F));
  } else if (codePoint < kFirstSupplementary) {
    put(0xE0 | (codePoint >> 12));
    put(0x80 | ((codePoint >> 6) & 0x3F));
    put(0x80 | (codePoint & 0x3F));
  } else {
    put(0xF0 | (codePoint >> 18));
    put(0x80 | ((codePoint >> 12) & 0x3F));
    put(0x80 | ((codePoint >> 6) & 0x3F));
    put(0x80 | (codePoint & 0x3F));
  }
}

std::optional<std::string> utf8FromUtf16(std::span<const std::byte> bytes, ByteOrder order) {
  if (bytes.size() % 2 != 0) return std::nullopt;
  const std::size_t high = order == ByteOrder::BigEndian ? 0 : 1;
  const auto unitAt = [&](std::size_t index) {
    const auto upper = std::to_integer<char32_t>(bytes[2 * index + high]);
    return (upper << 8) | std::to_integer<char32_t>(bytes[2 * index + 1 - high]);
  };
  std::string text;
  text.reserve(bytes.size() / 2);
  const std::size_t count = bytes.size() / 2;
  for (std::size_t i = 0; i < count; ++i) {
    char32_t value = unitAt(i);
    if (value >= kFirstSurrogate && value <= kLastSurrogate) {
      if (value >= kFirstLowSurrogate || i + 1 == count) return std::nullopt;
      const char32_t low = unitAt(++i);
      if (low < kFirstLowSurrogate || low > kLastSurrogate) return std::nullopt;
      value = kFirstSupplementary + ((value - kFirstSurrogate) << 10) + (low - kFirstLowSurrogate);
    }
    appendUtf8(text, value);
  }
  return text;
}

std::u16string utf16FromUtf8(std::string_view text) {
  std::u16string units;
  units.reserve(text.size());
  while (!text.empty()) {
    const auto decoded = firstCodePoint(text);
    if (!decoded) {
      units.push_back(kReplacement);
      text.remove_prefix(1);
      continue;
    }
    text.remove_prefix(decoded->length);
    if (decoded->codePoint < kFirstSupplementary) {
      units.push_back(static_cast<char16_t>(decoded->codePoint));
    } else {
      const char32_t offset = decoded->codePoint - kFirstSupplementary;
      units.push_back(static_cast<char16_t>(kFirstSurrogate + (offset >> 10)));
      units.push_back(static_cast<char16_t>(kFirstLowSurrogate + (offset & 0x3FF)));
    }
  }
  return units;
}

}  // namespace foundation::unicode
