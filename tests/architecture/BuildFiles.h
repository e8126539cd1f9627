#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace architecture {

/// A library or a program as a CMakeLists.txt makes it.
struct Target {
  std::string name;
  std::string folder;              ///< of its CMakeLists.txt, from the project's root
  std::set<std::string> publicly;  ///< the targets it links PUBLIC
  std::set<std::string> privately;
  std::vector<std::string> sources;  ///< from the project's root; one per system where the system chooses
};

/// The targets of one CMakeLists.txt. Reads corvane_library, add_library, add_executable, target_sources and
/// target_link_libraries, and skips whatever else stands there.
std::vector<Target> targetsIn(std::string_view text, const std::string& folder);

/// The targets of the product below a project's root.
std::vector<Target> targetsOf(const std::string& project);

}  // namespace architecture
