#pragma once

#include <string>

#include "tools/showing/BundleContents.h"

namespace bundletool {

/// The contents for people, in aligned columns; safe to print on a terminal.
[[nodiscard]] std::string textOf(const BundleContents& contents);

}  // namespace bundletool
