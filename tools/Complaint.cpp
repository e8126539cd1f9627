#include "tools/Complaint.h"

#include <cstdio>
#include <string>

#include "general/terminal/Terminal.h"

namespace bundletool {

namespace {

constexpr std::size_t kMostPrinted = 100;

void complainOf(const std::vector<Problem>& problems, std::string_view kind) {
  for (std::size_t index = 0; index < problems.size() && index < kMostPrinted; ++index) {
    complain(std::string(kind) + problems[index].text());
  }
  if (problems.size() > kMostPrinted) {
    complain("and " + std::to_string(problems.size() - kMostPrinted) + " more like these");
  }
}

}  // namespace

void complain(std::string_view text) { terminal::writeAtOnce(stderr, "installer-tool: " + std::string(text) + "\n"); }

void complainOf(const Problems& problems) {
  complainOf(problems.warnings(), "warning: ");
  complainOf(problems.errors(), "");
}

}  // namespace bundletool
