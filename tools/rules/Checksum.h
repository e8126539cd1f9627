#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace bundletool {

/// What is wrong with the text of a SHA-256, in words, or nothing. Every checksum in a bundle has 64 lowercase
/// hexadecimal digits, so that it can be the name of a file and no path.
[[nodiscard]] std::optional<std::string> faultOfChecksum(std::string_view text);

}  // namespace bundletool
