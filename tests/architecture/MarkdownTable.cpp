#include "tests/architecture/MarkdownTable.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace architecture {

namespace {

std::string trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(' ');
  return first == std::string_view::npos ? std::string()
                                         : std::string(text.substr(first, text.find_last_not_of(' ') + 1 - first));
}

/// The cells of a line of a table; none of any other line.
Row cellsOf(std::string_view line) {
  Row cells;
  if (!line.starts_with("|") || !line.ends_with("|")) {
    return cells;
  }
  for (std::size_t start = 1; start < line.size();) {
    const auto end = line.find('|', start);
    cells.push_back(trimmed(line.substr(start, end - start)));
    start = end + 1;
  }
  return cells;
}

/// Goes on behind the next header of this kind; false when there is none.
bool findHeader(std::istream& lines, const Row& header) {
  for (std::string line; std::getline(lines, line);) {
    if (cellsOf(line) == header) {
      return true;
    }
  }
  return false;
}

bool isRule(const Row& row) { return row.front().find_first_not_of("-:") == std::string::npos; }

std::vector<Row> rowsBelow(std::istream& lines, std::size_t columns) {
  std::vector<Row> rows;
  for (std::string line; std::getline(lines, line);) {
    const Row row = cellsOf(line);
    if (row.empty()) {
      break;
    }
    if (row.size() != columns) {
      throw std::runtime_error("a row of the page has not the columns of its table: " + line);
    }
    if (!isRule(row)) {
      rows.push_back(row);
    }
  }
  return rows;
}

}  // namespace

std::string textOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw std::runtime_error("cannot read " + path);
  }
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<Row> tableOf(std::string_view page, const Row& header) {
  std::istringstream lines{std::string(page)};
  if (!findHeader(lines, header)) {
    throw std::runtime_error("the page has no table with the columns " + header.front() + " ... " + header.back());
  }
  return rowsBelow(lines, header.size());
}

std::vector<Row> rowsOfAll(std::string_view page, const Row& header) {
  std::istringstream lines{std::string(page)};
  std::vector<Row> rows;
  while (findHeader(lines, header)) {
    std::ranges::move(rowsBelow(lines, header.size()), std::back_inserter(rows));
  }
  if (rows.empty()) {
    throw std::runtime_error("the page has no row with the columns " + header.front() + " ... " + header.back());
  }
  return rows;
}

std::vector<std::string> quotedIn(std::string_view cell) {
  std::vector<std::string> words;
  for (auto open = cell.find('`'); open != std::string_view::npos;) {
    const auto close = cell.find('`', open + 1);
    if (close == std::string_view::npos) {
      throw std::runtime_error("a backquote is not closed: " + std::string(cell));
    }
    words.emplace_back(cell.substr(open + 1, close - open - 1));
    open = cell.find('`', close + 1);
  }
  return words;
}

}  // namespace architecture
