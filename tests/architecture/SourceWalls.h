#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tests/architecture/House.h"

namespace architecture {

/// A function that the product does not call, and what it does instead.
struct BannedCall {
  std::string_view name;
  std::string_view instead;
};

/// The house's own list.
const std::vector<BannedCall>& bannedCalls();

/// Calls of banned functions, in the standard library's namespace or none: methods of that name are something else.
Problems callsOf(const House& house, const std::vector<BannedCall>& banned);

/// Files with more lines than that.
Problems filesLongerThan(const House& house, std::size_t lines);

/// Functions with more lines than that, from their head to their last brace. Goes by the layout: what begins outside of
/// functions, opens a brace at the end of a line and is no namespace and no type ends with the next brace of its own
/// indentation.
Problems functionsLongerThan(const House& house, std::size_t lines);

/// Sources for all systems that ask the compiler which one this is.
Problems systemQuestions(const House& house);

/// Code that stands in other files of the product than those of these names, without an ending.
Problems codeOutside(const House& house, std::string_view code, const std::vector<std::string_view>& names);

/// Lines of a CMake file that are not in the house's style: at most 120 characters, two blanks for each level and no
/// other ones at the beginning, none at the end.
Problems strayLinesOf(const std::string& path, std::string_view text);

/// A source's text without what the compiler does not read as code: comments and literals give way to blanks, lines
/// stay lines.
std::string codeOf(std::string_view text);

}  // namespace architecture
