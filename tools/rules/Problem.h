#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bundletool {

/// One thing that is wrong with what the tool was given.
struct Problem {
  std::string file;
  std::string key;     ///< where in the file, such as `Components[0].Name`; empty when the file as a whole is meant
  std::string what;    ///< what is wrong
  std::string advice;  ///< what to do about it; may be empty
  std::string name{};  ///< of a warning, see WarningNames.h; errors have none

  /// `FILE: KEY: what is wrong; what to do`, on one line and safe to print on a terminal. A name stands in front of it,
  /// as `[NAME] `.
  [[nodiscard]] std::string text() const;
};

/// Everything found wrong so far, in the order of finding. Errors stop the work, warnings do not, and those of a
/// silenced name are not even kept.
class Problems {
 public:
  void error(Problem problem) { errors_.push_back(std::move(problem)); }
  /// @param name one of WarningNames.h.
  void warning(std::string_view name, Problem problem);
  /// Drops the warnings of that name from now on.
  void silence(std::string_view name) { silenced_.emplace(name); }

  [[nodiscard]] bool none() const { return errors_.empty(); }
  [[nodiscard]] const std::vector<Problem>& errors() const { return errors_; }
  [[nodiscard]] const std::vector<Problem>& warnings() const { return warnings_; }

 private:
  std::vector<Problem> errors_;
  std::vector<Problem> warnings_;
  std::set<std::string, std::less<>> silenced_;
};

}  // namespace bundletool
