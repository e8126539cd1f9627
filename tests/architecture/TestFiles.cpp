#include "tests/architecture/TestFiles.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>
#include <string_view>

namespace architecture {

namespace {

constexpr std::string_view kEnding = "Tests.cpp";

/// Whether the name is a pair's, alone or followed by another word.
bool hasSubject(const std::string& name, const std::set<std::string>& pairs) {
  return std::ranges::any_of(pairs, [&](const std::string& pair) {
    return name == pair || (name.starts_with(pair) && std::isupper(static_cast<unsigned char>(name[pair.size()])) != 0);
  });
}

}  // namespace

std::vector<std::string> unitTestFilesOf(const std::string& project) {
  const std::filesystem::path top = std::filesystem::path(project) / "tests/unit";
  std::vector<std::string> files;
  for (const auto& item : std::filesystem::recursive_directory_iterator(top)) {
    if (const std::string path = std::filesystem::relative(item.path(), top).string(); path.ends_with(kEnding)) {
      files.push_back(path);
    }
  }
  std::ranges::sort(files);
  return files;
}

Problems testFilesWithoutSubject(const House& house, const std::vector<std::string>& testFiles) {
  std::set<std::string> pairs;
  for (const SourceFile& file : house.files) {
    pairs.insert(pairOf(file.path));
  }
  Problems problems;
  for (const std::string& file : testFiles) {
    if (!hasSubject(file.substr(0, file.size() - kEnding.size()), pairs)) {
      problems.push_back(sentence({"tests/unit/", file, " is named after no source of its folder"}));
    }
  }
  return problems;
}

}  // namespace architecture
