#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

/// A terminal as one line that is drawn again and again in place. Nothing here changes a terminal's settings.
namespace terminal {

/// Takes the cursor to the start of its line and clears the line.
inline constexpr std::string_view kEraseLine = "\r\x1b[K";

/// Whether the descriptor is a terminal that can clear a line.
[[nodiscard]] bool canRedraw(int descriptor);
/// How many characters fit into a line; 80 when the terminal does not know.
[[nodiscard]] std::size_t columnsOf(int descriptor);

/// Writes text that is complete for the moment and passes it on at once. What nobody takes any more is lost: who
/// watches may leave, and the work goes on.
void writeAtOnce(std::FILE* stream, std::string_view text);

/// `[###...]`, `length` characters between the brackets.
/// @param done what part is filled, from 0 to 1; beyond that as at the nearer end.
[[nodiscard]] std::string bar(double done, std::size_t length);
/// A bar as long as the line has room for before its tail, and the tail, cut so that the cursor stays in the line.
[[nodiscard]] std::string lineWithBar(double done, std::string_view tail, std::size_t columns);

}  // namespace terminal
