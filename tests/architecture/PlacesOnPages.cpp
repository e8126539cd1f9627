#include "tests/architecture/PlacesOnPages.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

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

bool isWordCharacter(char character) {
  return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_';
}

void addWords(std::string_view text, std::set<std::string>& words) {
  for (std::size_t at = 0; at < text.size();) {
    const auto end = std::find_if_not(text.begin() + static_cast<std::ptrdiff_t>(at), text.end(), isWordCharacter);
    const auto length = static_cast<std::size_t>(end - text.begin()) - at;
    if (length > 0) {
      words.emplace(text.substr(at, length));
    }
    at += length + 1;
  }
}

/// `Name` of `Name` or `Name::operation`; nothing of what cannot be the name of a class.
std::string classIn(const std::string& word) {
  const auto isLower = [](unsigned char letter) { return std::islower(letter) != 0; };
  const std::string name = word.substr(0, word.find("::"));
  const bool looksLikeOne = std::isupper(static_cast<unsigned char>(name.empty() ? ' ' : name.front())) != 0 &&
                            std::ranges::all_of(name, isWordCharacter) && std::ranges::any_of(name, isLower);
  return looksLikeOne ? name : std::string();
}

bool isPathOfCode(const std::string& word) {
  return word.find('/') != std::string::npos && word.front() != '/' && word.find_first_of(" *…") == std::string::npos &&
         (word.ends_with(".h") || word.ends_with(".cpp") || word.ends_with(".sh"));
}

/// Where the links of a page lead, without those into the web and those within the page.
std::vector<std::string> linksOn(const std::string& page) {
  std::vector<std::string> links;
  for (auto at = page.find("]("); at != std::string::npos; at = page.find("](", at + 1)) {
    const std::string link = page.substr(at + 2, page.find_first_of("#)", at + 2) - at - 2);
    if (!link.empty() && link.find("://") == std::string::npos) {
      links.push_back(link);
    }
  }
  return links;
}

}  // namespace

std::set<std::string> wordsOfCode(const std::string& project) {
  std::set<std::string> words;
  for (const SourceFile& file : productOf(project)) {
    addWords(file.text, words);
    words.insert(nameIn(file.path));
  }
  for (const char* folder : {"unit", "integration", "support"}) {
    for (const auto& item : std::filesystem::recursive_directory_iterator(project + "/tests/" + folder)) {
      if (item.is_regular_file()) {
        addWords(textOf(item.path().string()), words);
      }
    }
  }
  return words;
}

Problems namesNotInCode(const std::string& page, const std::set<std::string>& words) {
  Problems problems;
  for (const std::string& word : quotedIn(page)) {
    if (const std::string name = classIn(word); !name.empty() && !words.contains(name)) {
      problems.push_back(sentence({"the page names ", name, ", which is no word of the code"}));
    }
  }
  return problems;
}

Problems pathsThatLeadNowhere(const std::string& project, const std::string& pagePath) {
  const std::filesystem::path root(project);
  const std::string page = textOf((root / pagePath).string());
  Problems problems;
  for (const std::string& word : quotedIn(page)) {
    if (isPathOfCode(word) && !std::filesystem::exists(root / word)) {
      problems.push_back(sentence({pagePath, " names ", word, ", which is not there"}));
    }
  }
  for (const std::string& link : linksOn(page)) {
    if (!std::filesystem::exists((root / pagePath).parent_path() / link)) {
      problems.push_back(sentence({pagePath, " has a link to ", link, ", which is not there"}));
    }
  }
  return problems;
}

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
