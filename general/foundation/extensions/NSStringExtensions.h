#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace foundation::NSStringExtensions {

/// A new random identifier in canonical form: 36 characters, upper-case hexadecimal in groups 8-4-4-4-12.
[[nodiscard]] std::string stringWithUUID();
/// The first run of decimal digits, if nothing but white space stands before it, as a number; 0 without one. Numbers
/// beyond 64 bits give the largest one.
[[nodiscard]] std::uint64_t unsignedLongLongValue(std::string_view text);

}  // namespace foundation::NSStringExtensions
