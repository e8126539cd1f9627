#pragma once

#include <string_view>

#include "tools/rules/Problem.h"

namespace bundletool {

/// Prints `installer-tool: ` and the text, which is safe to print, on standard error.
void complain(std::string_view text);
/// Prints warnings, then errors; of very many the first, and how many more there are.
void complainOf(const Problems& problems);

}  // namespace bundletool
