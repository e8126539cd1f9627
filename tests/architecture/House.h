#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "tests/architecture/ArchitecturePage.h"
#include "tests/architecture/BuildFiles.h"
#include "tests/architecture/ProductTree.h"

namespace architecture {

/// The product's sources, the targets that build them, and the page that speaks of both.
struct House {
  std::vector<SourceFile> files;
  std::vector<Target> targets;
  ArchitecturePage page;
};

/// Reads a project: its product's folders and docs/architecture.md.
House houseAt(const std::string& project);

/// Sentences about what is wrong, each with what to do about it; none when all is well.
using Problems = std::vector<std::string>;

/// One sentence of its parts.
std::string sentence(std::initializer_list<std::string_view> parts);

}  // namespace architecture
