#pragma once

#include <string>
#include <vector>

#include "tests/architecture/House.h"
#include "tests/architecture/MarkdownTable.h"

namespace architecture {

/// The words in backquotes of one column, in order.
std::vector<std::string> wordsInColumn(const std::vector<Row>& rows, std::size_t column);

/// Names, as classes and their sources have them, that no source or header of the product has.
Problems namesWithoutSource(const House& house, const std::vector<std::string>& names);

/// Doors to the system against the page that lists them by their header: every header that a system's sources implement
/// has to be listed, and every header that is listed has to be such a one. A source implements the first header it
/// includes, unless that one is its system's own.
Problems doorsAgainstPage(const House& house, const std::vector<std::string>& headers);

}  // namespace architecture
