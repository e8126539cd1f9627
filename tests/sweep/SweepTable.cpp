#include "tests/sweep/SweepTable.h"

#include <algorithm>
#include <istream>
#include <ostream>
#include <sstream>

namespace sweep {
namespace {

constexpr std::string_view kRowMark = "= ";

}  // namespace

void SweepTable::write(std::ostream& stream, const FaultPoint& point, const Verdict& verdict) {
  std::array<bool, kWrongs> wrongs{};
  for (const Finding& finding : verdict.findings) {
    wrongs[static_cast<std::size_t>(finding.wrong)] = true;
  }
  stream << kRowMark << point.flow << ' ' << verdict.reached;
  for (const bool wrong : wrongs) {
    stream << ' ' << wrong;
  }
  stream << '\n';
  for (const Finding& finding : verdict.findings) {
    std::string text = finding.text;
    std::ranges::replace(text, '\n', ' ');
    stream << point.text() << ": " << nameOfWrong(finding.wrong) << " [" << verdict.call << "] " << text << '\n';
  }
}

void SweepTable::read(std::istream& written, std::ostream& findings) {
  for (std::string line; std::getline(written, line);) {
    if (!line.starts_with(kRowMark)) {
      findings << line << '\n';
      continue;
    }
    std::istringstream fields(line.substr(kRowMark.size()));
    std::string flow;
    bool reached = false;
    fields >> flow >> reached;
    Row& row = rows_[flow];
    ++row.faults;
    row.reached += reached ? 1 : 0;
    for (std::size_t& sum : row.wrongs) {
      bool wrong = false;
      fields >> wrong;
      sum += wrong ? 1 : 0;
    }
  }
}

void SweepTable::print(std::ostream& stream) const {
  stream << "| flow | faults | call came |";
  for (std::size_t wrong = 0; wrong < kWrongs; ++wrong) {
    stream << ' ' << nameOfWrong(static_cast<Wrong>(wrong)) << " |";
  }
  stream << "\n|---|---|---|";
  for (std::size_t wrong = 0; wrong < kWrongs; ++wrong) {
    stream << "---|";
  }
  stream << '\n';
  for (const auto& [flow, row] : rows_) {
    stream << "| " << flow << " | " << row.faults << " | " << row.reached << " |";
    for (const std::size_t sum : row.wrongs) {
      stream << ' ' << sum << " |";
    }
    stream << '\n';
  }
}

bool SweepTable::nothingIsWrong() const {
  return std::ranges::all_of(rows_, [](const auto& row) {
    return std::ranges::all_of(row.second.wrongs, [](std::size_t sum) { return sum == 0; });
  });
}

}  // namespace sweep
