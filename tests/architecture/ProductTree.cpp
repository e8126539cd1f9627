#include "tests/architecture/ProductTree.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>

#include "tests/architecture/MarkdownTable.h"

namespace architecture {

namespace {

constexpr std::array<std::string_view, 4> kProductFolders = {"InstallationDeployer", "general", "frontend", "tools"};
constexpr std::array<std::string_view, 3> kPartsOfARoom = {"internal", "linux", "darwin"};

std::string_view folderOf(std::string_view path) { return path.substr(0, path.rfind('/')); }
std::string_view nameOf(std::string_view path) { return path.substr(path.rfind('/') + 1); }

std::vector<std::string> includesOf(const std::string& text) {
  std::vector<std::string> includes;
  for (const std::string& line : linesOf(text)) {
    const auto open = line.find('"');
    if (line.starts_with("#include") && open != std::string::npos) {
      includes.push_back(line.substr(open + 1, line.find('"', open + 1) - open - 1));
    }
  }
  return includes;
}

}  // namespace

std::vector<SourceFile> productOf(const std::string& project) {
  std::vector<SourceFile> files;
  for (const std::string_view folder : kProductFolders) {
    const std::filesystem::path top = std::filesystem::path(project) / folder;
    if (!std::filesystem::exists(top)) {
      continue;
    }
    for (const auto& item : std::filesystem::recursive_directory_iterator(top)) {
      const std::string ending = item.path().extension().string();
      if (ending == ".h" || ending == ".cpp") {
        const std::string text = textOf(item.path().string());
        files.push_back({std::filesystem::relative(item.path(), project).string(), text, includesOf(text)});
      }
    }
  }
  std::ranges::sort(files, {}, &SourceFile::path);
  return files;
}

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  std::istringstream stream{std::string(text)};
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::string roomOf(std::string_view path) {
  std::string_view folder = folderOf(path);
  while (std::ranges::find(kPartsOfARoom, nameOf(folder)) != kPartsOfARoom.end()) {
    folder = folderOf(folder);
  }
  return std::string(folder);
}

std::string pairOf(std::string_view path) {
  const std::string_view name = nameOf(path);
  return roomOf(path) + "/" + std::string(name.substr(0, name.rfind('.')));
}

}  // namespace architecture
