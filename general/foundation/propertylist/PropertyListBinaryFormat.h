#pragma once

#include <cstddef>
#include <cstdint>

/// Facts of the binary format that its reader and its writer share.
///
/// A document is the magic, the objects, a table of their offsets and a trailer. An object begins with a marker: the
/// kind in its upper half, a length or a size in the lower one. All numbers are big-endian.
namespace foundation::plist::binary {

enum class Kind : std::uint8_t {
  Simple = 0x0,
  Integer = 0x1,
  Real = 0x2,
  Date = 0x3,
  Data = 0x4,
  AsciiString = 0x5,
  Utf16String = 0x6,
  Array = 0xA,
  Dictionary = 0xD,
};

inline constexpr std::uint8_t kFalse = 0x8;
inline constexpr std::uint8_t kTrue = 0x9;
/// A date's marker is always that of eight bytes.
inline constexpr std::uint8_t kDateSize = 0x3;
/// Says that an integer object with the real length follows the marker.
inline constexpr std::uint8_t kLongLength = 0xF;

inline constexpr std::size_t kTrailerSize = 32;
inline constexpr std::size_t kOffsetSizeAt = 6;
inline constexpr std::size_t kReferenceSizeAt = 7;
inline constexpr std::size_t kObjectCountAt = 8;
inline constexpr std::size_t kTopObjectAt = 16;
inline constexpr std::size_t kOffsetTableAt = 24;

}  // namespace foundation::plist::binary
