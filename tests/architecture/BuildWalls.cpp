#include "tests/architecture/BuildWalls.h"

#include <algorithm>

#include "tests/architecture/IncludeWalls.h"

namespace architecture {

namespace {

std::map<std::string, std::string> foldersOfTargets(const House& house) {
  std::map<std::string, std::string> folders;
  for (const Target& target : house.targets) {
    folders[target.name] = target.folder;
  }
  return folders;
}

/// The other folders of the product that a folder's targets link: all of them, or those that users of the targets get,
/// too.
std::set<std::string> linkedBy(const House& house, const std::string& folder, bool onlyPublic) {
  const auto folders = foldersOfTargets(house);
  std::set<std::string> linked;
  const auto add = [&](const std::set<std::string>& names) {
    for (const std::string& name : names) {
      if (const auto found = folders.find(name); found != folders.end() && found->second != folder) {
        linked.insert(found->second);
      }
    }
  };
  for (const Target& target : house.targets) {
    if (target.folder == folder) {
      add(target.publicly);
      if (!onlyPublic) {
        add(target.privately);
      }
    }
  }
  return linked;
}

/// A sentence for each folder that is in the first set and not in the second.
void compare(const std::set<std::string>& some, const std::set<std::string>& others, const std::string& before,
             const std::string& after, Problems& problems) {
  for (const std::string& folder : some) {
    if (!others.contains(folder)) {
      problems.push_back(sentence({before, folder, after}));
    }
  }
}

}  // namespace

Problems targetsAgainstPage(const House& house) {
  std::set<std::string> onPage;
  std::set<std::string> built;
  for (const Room& room : house.page.rooms) {
    for (const std::string& target : room.targets) {
      onPage.insert(sentence({target, " in ", room.folder, "/"}));
    }
  }
  for (const Target& target : house.targets) {
    built.insert(sentence({target.name, " in ", target.folder, "/"}));
  }
  Problems problems;
  compare(onPage, built, "the page has a target that is not built: ", "", problems);
  compare(built, onPage, "a target is not on the page: ", "", problems);
  return problems;
}

Problems linksAgainstIncludes(const House& house) {
  Graph arrows = arrowsOf(house.files);
  Problems problems;
  for (const Room& room : house.page.rooms) {
    const auto linked = linkedBy(house, room.folder, false);
    compare(arrows[room.folder], linked, room.folder + "/ includes ", "/ and does not link its target", problems);
    compare(linked, arrows[room.folder], room.folder + "/ links the target of ", "/ and includes nothing of it",
            problems);
  }
  return problems;
}

Problems linksAgainstHeaders(const House& house) {
  Graph needed = arrowsOf(house.files, true);
  Problems problems;
  for (const Room& room : house.page.rooms) {
    const auto linked = linkedBy(house, room.folder, true);
    compare(needed[room.folder], linked, "a header of " + room.folder + "/ includes ", "/: link its target PUBLIC",
            problems);
    compare(linked, needed[room.folder], "no header of " + room.folder + "/ includes ", "/: link its target PRIVATE",
            problems);
  }
  return problems;
}

Problems unbuiltSources(const House& house) {
  std::set<std::string> built;
  for (const Target& target : house.targets) {
    built.insert(target.sources.begin(), target.sources.end());
  }
  Problems problems;
  for (const SourceFile& file : house.files) {
    if (!file.isHeader() && !built.contains(file.path)) {
      problems.push_back(file.path + " is built by no target");
    }
  }
  return problems;
}

}  // namespace architecture
