#include "tests/architecture/IncludeWalls.h"

#include <algorithm>
#include <functional>

#include "tests/architecture/Circles.h"

namespace architecture {

namespace {

bool isPartOf(std::string_view path, const std::string& part) {
  return path.find("/" + part + "/") != std::string::npos;
}

bool isIn(const std::string& room, const std::string& folder) {
  return room == folder || room.starts_with(folder + "/");
}

using Judge = std::function<std::string(const SourceFile& file, const std::string& include)>;

/// What a judge says about each include; an empty answer is none.
Problems ofIncludes(const House& house, const Judge& judge) {
  Problems problems;
  for (const SourceFile& file : house.files) {
    for (const std::string& include : file.includes) {
      if (const std::string problem = judge(file, include); !problem.empty()) {
        problems.push_back(sentence({file.path, " includes ", include, problem}));
      }
    }
  }
  return problems;
}

Graph includesBetweenPairs(const std::vector<SourceFile>& files) {
  Graph graph;
  for (const SourceFile& file : files) {
    for (const std::string& include : file.includes) {
      if (pairOf(include) != pairOf(file.path)) {
        graph[pairOf(file.path)].insert(pairOf(include));
      }
    }
  }
  return graph;
}

}  // namespace

Graph arrowsOf(const std::vector<SourceFile>& files, bool headersOnly) {
  Graph graph;
  for (const SourceFile& file : files) {
    for (const std::string& include : file.includes) {
      if (roomOf(include) != roomOf(file.path) && (file.isHeader() || !headersOnly)) {
        graph[roomOf(file.path)].insert(roomOf(include));
      }
    }
  }
  return graph;
}

Problems unknownIncludes(const House& house) {
  return ofIncludes(house, [&](const SourceFile& /*file*/, const std::string& include) {
    const bool known = std::ranges::find(house.files, include, &SourceFile::path) != house.files.end();
    return std::string(known ? "" : ", which is no file of the product: name it from the project's root");
  });
}

Problems roomsAgainstPage(const House& house) {
  std::set<std::string> folders;
  for (const SourceFile& file : house.files) {
    folders.insert(roomOf(file.path));
  }
  Problems problems;
  for (const std::string& folder : folders) {
    if (house.page.roomAt(folder) == nullptr) {
      problems.push_back(folder + "/ has no row on the page");
    }
  }
  for (const Room& room : house.page.rooms) {
    if (!folders.contains(room.folder)) {
      problems.push_back(sentence({"the page has a row for ", room.folder, "/, where no source stands"}));
    }
  }
  return problems;
}

Problems missingArrows(const House& house) {
  return ofIncludes(house, [&](const SourceFile& file, const std::string& include) -> std::string {
    const std::string from = roomOf(file.path);
    const std::string to = roomOf(include);
    const Room* room = house.page.roomAt(from);
    if (from == to || (room != nullptr && room->mayInclude.contains(to))) {
      return {};
    }
    return ", but the page has no arrow from " + shortNameOf(from) + " to " + shortNameOf(to);
  });
}

Problems idleArrows(const House& house) {
  Graph arrows = arrowsOf(house.files);
  Problems problems;
  for (const Room& room : house.page.rooms) {
    for (const std::string& target : room.mayInclude) {
      if (!arrows[room.folder].contains(target)) {
        problems.push_back(sentence({"the page has an arrow from ", shortNameOf(room.folder), " to ",
                                     shortNameOf(target), " that no include needs: take it off"}));
      }
    }
  }
  return problems;
}

Problems sketchAgainstTable(const House& house) {
  std::set<std::pair<std::string, std::string>> table;
  for (const Room& room : house.page.rooms) {
    for (const std::string& target : room.mayInclude) {
      table.emplace(shortNameOf(room.folder), shortNameOf(target));
    }
  }
  Problems problems;
  for (const auto& arrow : house.page.sketch) {
    if (!table.contains(arrow)) {
      problems.push_back(
          sentence({"the sketch has an arrow from ", arrow.first, " to ", arrow.second, " that the table has not"}));
    }
  }
  return problems;
}

Problems circlesOfRooms(const House& house) {
  Problems problems;
  for (const auto& circle : circlesOf(arrowsOf(house.files))) {
    problems.push_back("these folders include each other: " + listed(circle));
  }
  return problems;
}

Problems circlesOfPairs(const House& house) {
  const auto circles = circlesOf(includesBetweenPairs(house.files));
  Problems problems;
  for (const auto& circle : circles) {
    if (std::ranges::find(house.page.circles, circle, &KnownCircle::pairs) == house.page.circles.end()) {
      problems.push_back("these headers and sources include each other: " + listed(circle));
    }
  }
  for (const KnownCircle& known : house.page.circles) {
    if (std::ranges::find(circles, known.pairs) == circles.end()) {
      problems.push_back(
          sentence({"the page has a circle that is none any more: ", listed(known.pairs), ": take it off"}));
    }
  }
  return problems;
}

Problems foreignInternals(const House& house) {
  return ofIncludes(house, [](const SourceFile& file, const std::string& include) -> std::string {
    const bool foreign = isPartOf(include, "internal") && roomOf(include) != roomOf(file.path);
    return foreign ? ", which is internal to " + shortNameOf(roomOf(include)) : std::string();
  });
}

Problems foreignSystems(const House& house) {
  return ofIncludes(house, [](const SourceFile& file, const std::string& include) -> std::string {
    for (const char* system : {"linux", "darwin"}) {
      if (isPartOf(include, system) && !isPartOf(file.path, system)) {
        return std::string(", which is there on ") + system + " only: ask through the header that all systems have";
      }
    }
    return {};
  });
}

Problems reaches(const House& house, const std::string& from, const std::string& to) {
  const Graph arrows = arrowsOf(house.files);
  Problems problems;
  for (const auto& [room, targets] : arrows) {
    if (!isIn(room, from)) {
      continue;
    }
    for (const std::string& reached : reachedFrom(arrows, room)) {
      if (isIn(reached, to)) {
        problems.push_back(sentence({room, "/ must never reach ", to, "/, but it does, at ", reached, "/"}));
      }
    }
  }
  return problems;
}

}  // namespace architecture
