#include "tools/rules/Problem.h"

#include "general/terminal/PrintableText.h"

namespace bundletool {

using terminal::printable;

std::string Problem::text() const {
  std::string line = (name.empty() ? "" : "[" + name + "] ") + printable(file);
  if (!key.empty()) {
    line += ": " + printable(key);
  }
  line += ": " + printable(what);
  if (!advice.empty()) {
    line += "; " + printable(advice);
  }
  return line;
}

void Problems::warning(std::string_view name, Problem problem) {
  if (!silenced_.contains(name)) {
    problem.name = name;
    warnings_.push_back(std::move(problem));
  }
}

}  // namespace bundletool
