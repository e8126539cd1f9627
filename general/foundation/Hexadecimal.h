#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

/// Bytes as hexadecimal digits: two for each, in the order of the bytes, with nothing between them. All functions may
/// be called from any thread.
namespace foundation::hexadecimal {

[[nodiscard]] std::string lowerCase(std::span<const std::byte> bytes);
[[nodiscard]] std::string lowerCaseByte(std::byte byte);
[[nodiscard]] std::string upperCase(std::span<const std::byte> bytes);
/// Whether a text consists of digits as lowerCase() writes them; true for an empty one.
[[nodiscard]] bool isLowerCase(std::string_view text);

}  // namespace foundation::hexadecimal
