#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tests/architecture/House.h"
#include "tests/architecture/MarkdownTable.h"

namespace architecture {

/// A promise of the pages, and the tests that show that it is kept.
struct Rule {
  std::string promise;
  std::vector<std::string> tests;  ///< Suite.Name, as the test programs list them
};

/// Every rule of a page: the rows of all its tables with these columns, in order. The first one tells the promise, the
/// last one names the tests.
std::vector<Rule> rulesOn(std::string_view page, const Row& header);

/// The tests of a source, as Suite.Name; TEST, TEST_F and TEST_P.
std::set<std::string> testsIn(std::string_view source);

/// The tests of every source below a folder.
std::set<std::string> testsBelow(const std::string& folder);

/// Rules that name no test, or a test that is not there; with tests of like names, where there are any.
Problems rulesWithoutTests(const std::vector<Rule>& rules, const std::set<std::string>& tests);

}  // namespace architecture
