#include "tools/showing/TextTable.h"

#include <algorithm>
#include <utility>

namespace bundletool {

namespace {

std::size_t widthOf(const std::string& text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(text, [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; }));
}

}  // namespace

TextTable::TextTable(std::vector<std::string> headings, std::set<std::size_t> rightAligned)
    : widths_(headings.size()), rightAligned_(std::move(rightAligned)) {
  add(std::move(headings));
}

void TextTable::add(std::vector<std::string> row) {
  row.resize(widths_.size());
  for (std::size_t column = 0; column < row.size(); ++column) {
    widths_[column] = std::max(widths_[column], widthOf(row[column]));
  }
  rows_.push_back(std::move(row));
}

std::string TextTable::text() const {
  std::string result;
  for (const auto& row : rows_) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      const std::string padding(widths_[column] - widthOf(row[column]), ' ');
      const bool isLast = column + 1 == row.size();
      result += rightAligned_.contains(column) ? padding + row[column] : row[column] + (isLast ? "" : padding);
      result += isLast ? "\n" : "  ";
    }
  }
  return result;
}

}  // namespace bundletool
