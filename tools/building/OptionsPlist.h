#pragma once

#include "tools/building/BundleDescription.h"
#include "tools/rules/Problem.h"

namespace bundletool {

/// Checks the options plist of a description that names one.
void examineOptionsPlist(const BundleDescription& description, Problems& problems);

}  // namespace bundletool
