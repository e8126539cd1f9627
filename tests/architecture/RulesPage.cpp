#include "tests/architecture/RulesPage.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "tests/architecture/MarkdownTable.h"

namespace architecture {

namespace {

std::string withoutBlanks(std::string_view text) {
  std::string kept;
  std::ranges::copy_if(text, std::back_inserter(kept),
                       [](char character) { return character != ' ' && character != '\n'; });
  return kept;
}

std::string lastPartOf(const std::string& test) { return test.substr(test.find('.') + 1); }

/// A test that was renamed has often kept its last name or its suite.
std::string likelyHeirsOf(const std::string& missing, const std::set<std::string>& tests) {
  std::string heirs;
  for (const std::string& test : tests) {
    if (lastPartOf(test) == lastPartOf(missing)) {
      heirs += (heirs.empty() ? " (perhaps it is now " : " or ") + test;
    }
  }
  return heirs.empty() ? heirs : heirs + ")";
}

}  // namespace

std::vector<Rule> rulesOn(std::string_view page, const Row& header) {
  std::vector<Rule> rules;
  for (const Row& row : rowsOfAll(page, header)) {
    rules.push_back({row.front(), quotedIn(row.back())});
  }
  return rules;
}

std::set<std::string> testsIn(std::string_view source) {
  std::set<std::string> tests;
  for (const std::string_view macro : {"\nTEST(", "\nTEST_F(", "\nTEST_P("}) {
    for (auto at = source.find(macro); at != std::string_view::npos; at = source.find(macro, at + 1)) {
      const auto begin = at + macro.size();
      std::string name = withoutBlanks(source.substr(begin, source.find(')', begin) - begin));
      std::ranges::replace(name, ',', '.');
      tests.insert(name);
    }
  }
  return tests;
}

std::set<std::string> testsBelow(const std::string& folder) {
  std::set<std::string> tests;
  for (const auto& item : std::filesystem::recursive_directory_iterator(folder)) {
    if (item.path().extension() == ".cpp") {
      tests.merge(testsIn(textOf(item.path().string())));
    }
  }
  return tests;
}

Problems rulesWithoutTests(const std::vector<Rule>& rules, const std::set<std::string>& tests) {
  Problems problems;
  for (const Rule& rule : rules) {
    if (rule.tests.empty()) {
      problems.push_back("no test is named for: " + rule.promise);
    }
    for (const std::string& test : rule.tests) {
      if (!tests.contains(test)) {
        problems.push_back(
            sentence({"the test ", test, " is not there", likelyHeirsOf(test, tests), "; it shows: ", rule.promise}));
      }
    }
  }
  return problems;
}

}  // namespace architecture
