#pragma once

#include <string_view>

namespace bundletool {

/// True for 64 lowercase hexadecimal digits, the form of every checksum in a bundle.
[[nodiscard]] bool isChecksum(std::string_view text);

}  // namespace bundletool
