#include "tools/rules/Problem.h"

#include "general/terminal/PrintableText.h"

namespace bundletool {

using terminal::printable;

std::string Problem::text() const {
  std::string line = printable(file);
  if (!key.empty()) {
    line += ": " + printable(key);
  }
  line += ": " + printable(what);
  if (!advice.empty()) {
    line += "; " + printable(advice);
  }
  return line;
}

}  // namespace bundletool
