#pragma once

#include <vector>

#include "tools/building/PathConflicts.h"
#include "tools/rules/Problem.h"

namespace bundletool {

/// Warns of what staged items have and a bundle cannot hold: hard links, extended attributes, access control lists,
/// file capabilities and holes.
void warnOfUnkeptExtras(const std::vector<ComponentItems>& components, Problems& problems);

}  // namespace bundletool
