#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace terminal {

/// True for controls, and for the characters that turn the direction of text around or break lines: they make one text
/// look like another.
[[nodiscard]] bool actsOnTerminal(char32_t code);

/// The text with everything escaped that a terminal could act on: control characters, also those above 0x7F, and bytes
/// that are no UTF-8, as `\xNN` or `\u{N}`. What prints stays as it is.
[[nodiscard]] std::string printable(std::string_view text);

/// Bytes for people: "812 bytes", "4.2 MB"; steps of 1000.
[[nodiscard]] std::string sizeText(std::uint64_t bytes);

}  // namespace terminal
