#include "tests/architecture/PlacesOnPages.h"

#include <algorithm>
#include <set>

namespace architecture {

namespace {

bool isOfOneSystem(std::string_view path) {
  return path.find("/linux/") != std::string::npos || path.find("/darwin/") != std::string::npos;
}

std::string nameIn(const std::string& path) {
  const std::string pair = pairOf(path);
  return pair.substr(pair.rfind('/') + 1);
}

/// Each door with one of the sources that implement it.
std::map<std::string, std::string> doorsOf(const House& house) {
  std::map<std::string, std::string> doors;
  for (const SourceFile& file : house.files) {
    if (!file.isHeader() && isOfOneSystem(file.path) && !file.includes.empty() &&
        !isOfOneSystem(file.includes.front())) {
      doors[file.includes.front()] = file.path;
    }
  }
  return doors;
}

}  // namespace

std::vector<std::string> wordsInColumn(const std::vector<Row>& rows, std::size_t column) {
  std::vector<std::string> words;
  for (const Row& row : rows) {
    std::ranges::move(quotedIn(row.at(column)), std::back_inserter(words));
  }
  return words;
}

Problems namesWithoutSource(const House& house, const std::vector<std::string>& names) {
  std::set<std::string> known;
  for (const SourceFile& file : house.files) {
    known.insert(nameIn(file.path));
  }
  Problems problems;
  for (const std::string& name : names) {
    if (!known.contains(name)) {
      problems.push_back(sentence({"the page names ", name, ", and no source is called so"}));
    }
  }
  return problems;
}

Problems doorsAgainstPage(const House& house, const std::vector<std::string>& headers) {
  const auto doors = doorsOf(house);
  Problems problems;
  for (const auto& [header, source] : doors) {
    if (std::ranges::find(headers, header) == headers.end()) {
      problems.push_back(sentence({"the page does not list ", header, ", which ", source, " implements"}));
    }
  }
  for (const std::string& header : headers) {
    if (!doors.contains(header)) {
      problems.push_back(sentence({"the page lists ", header, ", which no system's source implements"}));
    }
  }
  return problems;
}

}  // namespace architecture
