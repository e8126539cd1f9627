#include "tests/architecture/House.h"

#include "tests/architecture/MarkdownTable.h"

namespace architecture {

House houseAt(const std::string& project) {
  return {productOf(project), targetsOf(project), readArchitecturePage(textOf(project + "/docs/architecture.md"))};
}

}  // namespace architecture
