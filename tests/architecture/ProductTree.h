#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace architecture {

/// One source or header of the product.
struct SourceFile {
  std::string path;  ///< from the project's root
  std::string text;
  std::vector<std::string> includes;  ///< what it includes in quotes, in order

  [[nodiscard]] bool isHeader() const { return path.ends_with(".h"); }
};

/// Every source and header of the product below a project's root, those of all systems, sorted by path.
std::vector<SourceFile> productOf(const std::string& project);

/// The lines of a file's text.
std::vector<std::string> linesOf(std::string_view text);

/// The folder whose row speaks for a file: the file's own, or the one around it when that is `internal`, `linux` or
/// `darwin`.
std::string roomOf(std::string_view path);

/// What a header and its sources, one per system or several, are called together: the room and the name without an
/// ending.
std::string pairOf(std::string_view path);

/// Whom something points to, by name.
using Graph = std::map<std::string, std::set<std::string>>;

}  // namespace architecture
