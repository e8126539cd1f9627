#include "tests/architecture/BuildFiles.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>

#include "tests/architecture/MarkdownTable.h"
#include "tests/architecture/ProductTree.h"

namespace architecture {

namespace {

struct Command {
  std::string name;
  std::vector<std::string> words;
};

std::string withoutComments(std::string_view text) {
  std::string kept;
  for (const std::string& line : linesOf(text)) {
    kept += line.substr(0, line.find('#')) + "\n";
  }
  return kept;
}

/// Every `name(words...)`; nothing here nests parentheses in a command that is asked for.
std::vector<Command> commandsIn(std::string_view text) {
  const std::string kept = withoutComments(text);
  std::vector<Command> commands;
  for (std::size_t at = 0; at < kept.size();) {
    const auto open = kept.find('(', at);
    if (open == std::string::npos) {
      break;
    }
    const auto close = std::min(kept.find(')', open), kept.size());
    const auto before = kept.find_last_of(" \n)", open - 1);
    Command command{kept.substr(before + 1, open - before - 1), {}};
    std::istringstream words(kept.substr(open + 1, close - open - 1));
    for (std::string word; words >> word;) {
      command.words.push_back(word);
    }
    commands.push_back(command);
    at = close + 1;
  }
  return commands;
}

void addSource(Target& target, const std::string& word) {
  static constexpr std::string_view kSystem = "${CORVANE_PLATFORM}";
  const std::filesystem::path folder = target.folder;
  if (!word.ends_with(".cpp")) {
    return;
  }
  const auto at = word.find(kSystem);
  if (at == std::string::npos) {
    target.sources.push_back((folder / word).string());
    return;
  }
  for (const char* system : {"linux", "darwin"}) {
    std::string source = word;
    target.sources.push_back((folder / source.replace(at, kSystem.size(), system)).string());
  }
}

void addLinks(Target& target, const std::vector<std::string>& words) {
  bool isPublic = true;
  for (const std::string& word : words) {
    if (word == "PUBLIC" || word == "PRIVATE" || word == "INTERFACE") {
      isPublic = word != "PRIVATE";
    } else {
      (isPublic ? target.publicly : target.privately).insert(word);
    }
  }
}

bool isOneOf(const std::string& name, std::initializer_list<std::string_view> names) {
  return std::ranges::find(names, name) != names.end();
}

}  // namespace

std::vector<Target> targetsIn(std::string_view text, const std::string& folder) {
  std::vector<Target> targets;
  for (const Command& command : commandsIn(text)) {
    if (command.words.empty()) {
      continue;
    }
    if (isOneOf(command.name, {"corvane_library", "add_library", "add_executable"})) {
      targets.push_back({command.words.front(), folder, {}, {}, {}});
    }
    const auto target = std::ranges::find(targets, command.words.front(), &Target::name);
    if (target == targets.end()) {
      continue;
    }
    const std::vector<std::string> arguments(command.words.begin() + 1, command.words.end());
    if (command.name == "target_link_libraries") {
      addLinks(*target, arguments);
    } else if (isOneOf(command.name, {"corvane_library", "add_library", "add_executable", "target_sources"})) {
      std::ranges::for_each(arguments, [&](const std::string& word) { addSource(*target, word); });
    }
  }
  return targets;
}

std::vector<Target> targetsOf(const std::string& project) {
  std::set<std::string> folders;
  for (const SourceFile& file : productOf(project)) {
    folders.insert(roomOf(file.path));
  }
  std::vector<Target> targets;
  for (const std::string& folder : folders) {
    const std::filesystem::path buildFile = std::filesystem::path(project) / folder / "CMakeLists.txt";
    if (std::filesystem::exists(buildFile)) {
      std::ranges::move(targetsIn(textOf(buildFile.string()), folder), std::back_inserter(targets));
    }
  }
  return targets;
}

}  // namespace architecture
