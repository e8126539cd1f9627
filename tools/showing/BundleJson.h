#pragma once

#include <string>

#include "tools/showing/BundleContents.h"

namespace bundletool {

/// The contents as one JSON document; its members are listed in docs/bundle.md.
[[nodiscard]] std::string jsonOf(const BundleContents& contents);

}  // namespace bundletool
