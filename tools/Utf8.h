#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace bundletool {

/// One character of a text and the bytes it takes.
struct Utf8Character {
  char32_t code = 0;
  std::size_t length = 0;
};

/// The character that the text begins with; nothing when it is empty or its first bytes are no UTF-8.
[[nodiscard]] std::optional<Utf8Character> firstCharacter(std::string_view text);

}  // namespace bundletool
