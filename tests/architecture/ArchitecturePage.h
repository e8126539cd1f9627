#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace architecture {

/// One row of the table of rooms.
struct Room {
  std::string folder;                ///< from the project's root, without a slash at its end
  std::vector<std::string> targets;  ///< what the build calls it; the programs in it, too
  std::set<std::string> mayInclude;  ///< folders, in full
};

/// A circle between header and source pairs that stays, and why.
struct KnownCircle {
  std::set<std::string> pairs;  ///< as pairOf names them
  std::string reason;
};

/// What docs/architecture.md says that a machine can check.
struct ArchitecturePage {
  std::vector<Room> rooms;
  std::vector<KnownCircle> circles;
  std::set<std::pair<std::string, std::string>> sketch;  ///< the arrows of the sketch, between short names

  /// The row of a folder; null when the page has none.
  [[nodiscard]] const Room* roomAt(std::string_view folder) const;
};

/// Reads the page's two tables and its sketch: indented lines such as `a → {b, c} → d ; b, c → e`. The column "May
/// include" names folders by their last word, which is unique. Throws std::runtime_error, with a sentence that names
/// the row, when a table is missing or cannot be understood.
ArchitecturePage readArchitecturePage(std::string_view text);

/// What a folder is called in a row: its last word.
std::string shortNameOf(std::string_view folder);

}  // namespace architecture
