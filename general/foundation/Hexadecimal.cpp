#include "general/foundation/Hexadecimal.h"

namespace foundation::hexadecimal {

namespace {

constexpr std::string_view kLowerCaseDigits = "0123456789abcdef";
constexpr std::string_view kUpperCaseDigits = "0123456789ABCDEF";

std::string written(std::span<const std::byte> bytes, std::string_view digits) {
  std::string text;
  text.reserve(2 * bytes.size());
  for (const std::byte byte : bytes) {
    text += digits[std::to_integer<std::size_t>(byte >> 4U)];
    text += digits[std::to_integer<std::size_t>(byte & std::byte{0xf})];
  }
  return text;
}

}  // namespace

std::string lowerCase(std::span<const std::byte> bytes) { return written(bytes, kLowerCaseDigits); }

std::string lowerCaseByte(std::byte byte) { return written({&byte, 1}, kLowerCaseDigits); }

std::string upperCase(std::span<const std::byte> bytes) { return written(bytes, kUpperCaseDigits); }

bool isLowerCase(std::string_view text) { return text.find_first_not_of(kLowerCaseDigits) == std::string_view::npos; }

}  // namespace foundation::hexadecimal
