#include "general/foundation/extensions/NSNumberExtensions.h"

#include <algorithm>
#include <array>

namespace foundation::NSNumberExtensions {

namespace {

constexpr std::array<std::string_view, 4> kTrueTexts = {"true", "YES", "on", "1"};

char lowerCase(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

bool equalIgnoringCase(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char one, char other) { return lowerCase(one) == lowerCase(other); });
}

}  // namespace

PropertyList booleanTrue() { return true; }

PropertyList booleanFalse() { return false; }

PropertyList booleanForStringValue(const std::optional<std::string_view>& text) {
  if (!text) {
    return booleanTrue();
  }
  return std::any_of(kTrueTexts.begin(), kTrueTexts.end(),
                     [&](std::string_view candidate) { return equalIgnoringCase(*text, candidate); });
}

}  // namespace foundation::NSNumberExtensions
