#pragma once

#include <set>
#include <string>
#include <vector>

#include "tests/architecture/House.h"
#include "tests/architecture/MarkdownTable.h"

namespace architecture {

/// The words in backquotes of one column, in order.
std::vector<std::string> wordsInColumn(const std::vector<Row>& rows, std::size_t column);

/// Names, as classes and their sources have them, that no source or header of the product has.
Problems namesWithoutSource(const House& house, const std::vector<std::string>& names);

/// Every word of letters, digits and underscores that stands in a project's product or in its tests, and the names of
/// the product's sources.
std::set<std::string> wordsOfCode(const std::string& project);

/// Names in backquotes that look like those of a class (`Name`, `Name::operation`), and that are no words of the code.
Problems namesNotInCode(const std::string& page, const std::set<std::string>& words);

/// Paths of sources, headers and scripts in backquotes, and links to other pages, that lead nowhere. Paths begin at the
/// project's root, links at the folder of the page.
Problems pathsThatLeadNowhere(const std::string& project, const std::string& pagePath);

/// Doors to the system against the page that lists them by their header: every header that a system's sources implement
/// has to be listed, and every header that is listed has to be such a one. A source implements the first header it
/// includes, unless that one is its system's own.
Problems doorsAgainstPage(const House& house, const std::vector<std::string>& headers);

}  // namespace architecture
