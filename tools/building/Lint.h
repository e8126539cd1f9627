#pragma once

#include <vector>

#include "tools/building/PathConflicts.h"
#include "tools/rules/Problem.h"

namespace bundletool {

/// Warns of what is installed as it is staged but seldom meant: set-id programs, what everybody may write, files among
/// the system's own, and items in the place of the product's receipt.
void lint(const std::vector<ComponentItems>& components, Problems& problems);

}  // namespace bundletool
