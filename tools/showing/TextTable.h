#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace bundletool {

/// Text in columns that line up. Widths are counted in characters, of which each is believed to take one column.
class TextTable {
 public:
  /// @param rightAligned indices of the columns that are aligned to the right.
  TextTable(std::vector<std::string> headings, std::set<std::size_t> rightAligned);

  /// Cells that are too few are empty, and those beyond the headings are left out. Their text is safe to print.
  void add(std::vector<std::string> row);
  /// Every row with its newline, the headings first.
  [[nodiscard]] std::string text() const;

 private:
  std::vector<std::vector<std::string>> rows_;
  std::vector<std::size_t> widths_;
  std::set<std::size_t> rightAligned_;
};

}  // namespace bundletool
