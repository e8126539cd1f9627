#include "tests/architecture/ArchitecturePage.h"

#include <algorithm>
#include <stdexcept>

#include "tests/architecture/MarkdownTable.h"

namespace architecture {

namespace {

std::string withoutSlash(std::string word) {
  if (word.ends_with('/')) {
    word.pop_back();
  }
  return word;
}

std::string folderIn(const std::string& cell) {
  const auto words = quotedIn(cell);
  if (words.size() != 1 || !words.front().ends_with('/')) {
    throw std::runtime_error("a row of the page names no single folder with a slash at its end: " + cell);
  }
  return withoutSlash(words.front());
}

std::map<std::string, std::string> foldersByShortName(const std::vector<Row>& rows) {
  std::map<std::string, std::string> folders;
  for (const Row& row : rows) {
    const std::string folder = folderIn(row.front());
    if (!folders.emplace(shortNameOf(folder), folder).second) {
      throw std::runtime_error("two rows of the page are called " + shortNameOf(folder));
    }
  }
  return folders;
}

Room roomIn(const Row& row, const std::map<std::string, std::string>& folders) {
  Room room{folderIn(row[0]), quotedIn(row[1]), {}};
  for (const std::string& word : quotedIn(row[3])) {
    const auto found = folders.find(withoutSlash(word));
    if (found == folders.end()) {
      throw std::runtime_error("the row of " + room.folder + " names a folder without a row: " + word);
    }
    room.mayInclude.insert(found->second);
  }
  return room;
}

KnownCircle circleIn(const Row& row, const std::map<std::string, std::string>& folders) {
  const auto folder = folders.find(withoutSlash(quotedIn(row[0]).at(0)));
  if (folder == folders.end() || row[2].empty()) {
    throw std::runtime_error("a circle of the page needs a folder with a row, and a reason: " + row[0]);
  }
  KnownCircle circle{{}, row[2]};
  for (const std::string& name : quotedIn(row[1])) {
    circle.pairs.insert(folder->second + "/" + name);
  }
  return circle;
}

std::vector<std::string> partsOf(std::string_view text, std::string_view separator) {
  std::vector<std::string> parts;
  for (std::size_t at = 0; at <= text.size();) {
    const auto end = std::min(text.find(separator, at), text.size());
    parts.emplace_back(text.substr(at, end - at));
    at = end + separator.size();
  }
  return parts;
}

/// The names in one place of a sketch: `a`, or `{a, b}`.
std::vector<std::string> namesIn(std::string_view place) {
  std::vector<std::string> names;
  for (const std::string& part : partsOf(place, ",")) {
    const auto first = part.find_first_not_of(" {");
    names.push_back(part.substr(first, part.find_last_not_of(" }") + 1 - first));
  }
  return names;
}

std::set<std::pair<std::string, std::string>> sketchOn(std::string_view page) {
  std::set<std::pair<std::string, std::string>> arrows;
  for (const std::string& line : partsOf(page, "\n")) {
    if (!line.starts_with("    ") || line.find("→") == std::string::npos) {
      continue;
    }
    for (const std::string& chain : partsOf(line, ";")) {
      const auto places = partsOf(chain, "→");
      for (std::size_t place = 1; place < places.size(); ++place) {
        for (const std::string& from : namesIn(places[place - 1])) {
          for (const std::string& to : namesIn(places[place])) {
            arrows.emplace(from, to);
          }
        }
      }
    }
  }
  return arrows;
}

}  // namespace

std::string shortNameOf(std::string_view folder) { return std::string(folder.substr(folder.rfind('/') + 1)); }

const Room* ArchitecturePage::roomAt(std::string_view folder) const {
  const auto found = std::ranges::find(rooms, folder, &Room::folder);
  return found == rooms.end() ? nullptr : &*found;
}

ArchitecturePage readArchitecturePage(std::string_view text) {
  const auto rows = tableOf(text, {"Folder", "Target", "Home of", "May include"});
  const auto folders = foldersByShortName(rows);
  ArchitecturePage page;
  for (const Row& row : rows) {
    page.rooms.push_back(roomIn(row, folders));
  }
  for (const Row& row : tableOf(text, {"Folder", "Circle", "Why it stays"})) {
    page.circles.push_back(circleIn(row, folders));
  }
  page.sketch = sketchOn(text);
  return page;
}

}  // namespace architecture
