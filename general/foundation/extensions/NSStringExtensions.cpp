#include "general/foundation/extensions/NSStringExtensions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <span>
#include <system_error>

#include "general/foundation/RandomPrimitives.h"

namespace foundation::NSStringExtensions {

namespace {

constexpr std::string_view kHexadecimalDigits = "0123456789ABCDEF";
// The white space and line breaks of the platform's scanner, each as UTF-8.
constexpr std::array<std::string_view, 25> kWhiteSpace = {
    "\t",           "\n",           "\v",           "\f",           "\r",           " ",
    "\xc2\x85",     "\xc2\xa0",     "\xe1\x9a\x80", "\xe2\x80\x80", "\xe2\x80\x81", "\xe2\x80\x82",
    "\xe2\x80\x83", "\xe2\x80\x84", "\xe2\x80\x85", "\xe2\x80\x86", "\xe2\x80\x87", "\xe2\x80\x88",
    "\xe2\x80\x89", "\xe2\x80\x8a", "\xe2\x80\xa8", "\xe2\x80\xa9", "\xe2\x80\xaf", "\xe2\x81\x9f",
    "\xe3\x80\x80"};

std::string_view withoutLeadingWhiteSpace(std::string_view text) {
  while (true) {
    const auto* const blank = std::find_if(kWhiteSpace.begin(), kWhiteSpace.end(),
                                           [&](std::string_view candidate) { return text.starts_with(candidate); });
    if (blank == kWhiteSpace.end()) {
      return text;
    }
    text.remove_prefix(blank->size());
  }
}

}  // namespace

std::string stringWithUUID() {
  std::array<std::uint8_t, 16> bytes{};
  fillWithRandomBytes(std::as_writable_bytes(std::span(bytes)));
  // Version 4 (random) and the standard variant.
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0fU) | 0x40U);
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3fU) | 0x80U);
  std::string text;
  for (std::size_t index = 0; index < bytes.size(); ++index) {
    if (index == 4 || index == 6 || index == 8 || index == 10) {
      text += '-';
    }
    text += kHexadecimalDigits[bytes[index] >> 4U];
    text += kHexadecimalDigits[bytes[index] & 0xfU];
  }
  return text;
}

std::uint64_t unsignedLongLongValue(std::string_view text) {
  const std::string_view digits = withoutLeadingWhiteSpace(text);
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return error == std::errc::result_out_of_range ? std::numeric_limits<std::uint64_t>::max() : value;
}

}  // namespace foundation::NSStringExtensions
