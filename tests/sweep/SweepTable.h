#pragma once

#include <array>
#include <iosfwd>
#include <map>
#include <string>

#include "tests/sweep/FaultCheck.h"

namespace sweep {

/// How many faults of each flow there were, and after how many what was wrong. Workers write what they see as lines of
/// text, which the table is made of.
class SweepTable {
 public:
  /// A line for the table, and one for each finding: the point, what was wrong, the call that failed, how it showed.
  static void write(std::ostream& stream, const FaultPoint& point, const Verdict& verdict);

  /// Takes what a worker wrote; the lines about findings go to the other stream.
  void read(std::istream& written, std::ostream& findings);
  /// For people, in Markdown.
  void print(std::ostream& stream) const;
  [[nodiscard]] bool nothingIsWrong() const;

 private:
  struct Row {
    std::size_t faults = 0;
    std::size_t reached = 0;
    std::array<std::size_t, kWrongs> wrongs{};
  };
  std::map<std::string, Row> rows_;  // by flow
};

}  // namespace sweep
