#include "general/terminal/PrintableText.h"

#include <array>
#include <cstdio>

#include "general/foundation/Unicode.h"
#include "general/foundation/propertylist/TextFormat.h"

namespace terminal {

bool actsOnTerminal(char32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || (code >= 0x200B && code <= 0x200F) ||
         (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069) || code == 0xFEFF;
}

std::string printable(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const auto character = foundation::unicode::firstCodePoint(text);
    const std::size_t length = character ? character->length : 1;
    if (!character) {
      result += foundation::format("\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(text.front())));
    } else if (actsOnTerminal(character->codePoint)) {
      result += foundation::format(character->codePoint < 0x80 ? "\\x%02x" : "\\u{%x}",
                                   static_cast<std::uint32_t>(character->codePoint));
    } else {
      result += text.substr(0, length);
    }
    text.remove_prefix(length);
  }
  return result;
}

std::string sizeText(std::uint64_t bytes) {
  constexpr std::array<const char*, 5> kUnits{"kB", "MB", "GB", "TB", "PB"};
  if (bytes < 1000) {
    return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
  }
  double amount = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  while (amount >= 999.95 && unit + 1 < kUnits.size()) {
    amount /= 1000;
    ++unit;
  }
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f %s", amount, kUnits[unit]);
  return text.data();
}

}  // namespace terminal
