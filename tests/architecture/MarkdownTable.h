#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace architecture {

/// The text of a file; throws std::runtime_error when it cannot be read.
std::string textOf(const std::string& path);

/// The cells of one row of a table, without the spaces around them.
using Row = std::vector<std::string>;

/// The rows below the header `| first | second | ... |` of a page, in order. Throws std::runtime_error when the page
/// has no such table, or when a row has another number of cells: a table that cannot be read must not pass for an empty
/// one.
std::vector<Row> tableOf(std::string_view page, const Row& header);

/// The rows of every table with this header, one after the other. There has to be one, and it has to have a row.
std::vector<Row> rowsOfAll(std::string_view page, const Row& header);

/// The words of a cell that stand in backquotes, in order.
std::vector<std::string> quotedIn(std::string_view cell);

}  // namespace architecture
