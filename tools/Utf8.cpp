#include "tools/Utf8.h"

#include <array>

namespace bundletool {

namespace {

struct Shape {
  unsigned mask;
  unsigned lead;
  std::size_t length;
  char32_t smallest;
};

// How the first byte tells the length, and the smallest character that needs that length.
constexpr std::array<Shape, 4> kShapes{
    {{0x80, 0x00, 1, 0}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}}};
constexpr char32_t kLastCharacter = 0x10FFFF;

bool isSurrogate(char32_t code) { return code >= 0xD800 && code <= 0xDFFF; }

}  // namespace

std::optional<Utf8Character> firstCharacter(std::string_view text) {
  if (text.empty()) {
    return std::nullopt;
  }
  const unsigned first = static_cast<unsigned char>(text.front());
  for (const Shape& shape : kShapes) {
    if ((first & shape.mask) != shape.lead || text.size() < shape.length) {
      continue;
    }
    char32_t code = first & ~shape.mask;
    for (std::size_t index = 1; index < shape.length; ++index) {
      const unsigned byte = static_cast<unsigned char>(text[index]);
      if ((byte & 0xC0U) != 0x80U) {
        return std::nullopt;
      }
      code = (code << 6U) | (byte & 0x3FU);
    }
    if (code < shape.smallest || code > kLastCharacter || isSurrogate(code)) {
      return std::nullopt;
    }
    return Utf8Character{code, shape.length};
  }
  return std::nullopt;
}

}  // namespace bundletool
