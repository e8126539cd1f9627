#include "tests/architecture/House.h"

#include "tests/architecture/MarkdownTable.h"

namespace architecture {

House houseAt(const std::string& project) {
  return {productOf(project), targetsOf(project), readArchitecturePage(textOf(project + "/docs/architecture.md"))};
}

std::string sentence(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) {
    text += part;
  }
  return text;
}

}  // namespace architecture
