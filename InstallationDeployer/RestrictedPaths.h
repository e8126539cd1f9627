#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>

namespace deployer {

/// System folders that are never recorded in a manifest and never removed, as they are written in manifests.
[[nodiscard]] const std::set<std::string, std::less<>>& restrictedPaths();

/// Whether a path is one of them, compared as it is written.
[[nodiscard]] bool isRestricted(std::string_view path);

}  // namespace deployer
