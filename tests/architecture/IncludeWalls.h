#pragma once

#include <string>

#include "tests/architecture/House.h"

namespace architecture {

/// Includes in quotes that name no file of the product.
Problems unknownIncludes(const House& house);

/// Folders of the product without a row on the page, and rows without a folder.
Problems roomsAgainstPage(const House& house);

/// Includes that the page has no arrow for.
Problems missingArrows(const House& house);

/// Arrows of the page that no include needs.
Problems idleArrows(const House& house);

/// Arrows of the page's sketch that its table has not.
Problems sketchAgainstTable(const House& house);

/// Folders that include each other, directly or over others.
Problems circlesOfRooms(const House& house);

/// Header and source pairs that include each other and are not on the page; circles of the page that are none.
Problems circlesOfPairs(const House& house);

/// Includes of another folder's internal/.
Problems foreignInternals(const House& house);

/// Includes of a header for one system by what is built for all of them.
Problems foreignSystems(const House& house);

/// Whether what stands in or below one folder includes what stands in or below another, directly or over others.
Problems reaches(const House& house, const std::string& from, const std::string& to);

/// The arrows that the includes draw between folders; those of headers alone, when that is asked for.
Graph arrowsOf(const std::vector<SourceFile>& files, bool headersOnly = false);

}  // namespace architecture
