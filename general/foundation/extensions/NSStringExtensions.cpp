#include "general/foundation/extensions/NSStringExtensions.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <limits>
#include <system_error>

#include "general/foundation/Hexadecimal.h"
#include "general/foundation/RandomPrimitives.h"

namespace foundation::NSStringExtensions {

namespace {

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
  std::array<std::byte, 16> bytes{};
  fillWithRandomBytes(bytes);
  // Version 4 (random) and the standard variant.
  bytes[6] = (bytes[6] & std::byte{0x0f}) | std::byte{0x40};
  bytes[8] = (bytes[8] & std::byte{0x3f}) | std::byte{0x80};
  std::string text = hexadecimal::upperCase(bytes);
  for (const std::size_t dash : {8U, 13U, 18U, 23U}) {
    text.insert(dash, 1, '-');
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
