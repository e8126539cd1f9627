#pragma once

#include <string>
#include <vector>

namespace bundletool {

/// One thing that is wrong with what the tool was given.
struct Problem {
  std::string file;
  std::string key;     ///< where in the file, such as `Components[0].Name`; empty when the file as a whole is meant
  std::string what;    ///< what is wrong
  std::string advice;  ///< what to do about it; may be empty

  /// `FILE: KEY: what is wrong; what to do`, on one line and safe to print on a terminal.
  [[nodiscard]] std::string text() const;
};

/// Everything found wrong so far, in the order of finding. Errors stop the work, warnings do not.
class Problems {
 public:
  void error(Problem problem) { errors_.push_back(std::move(problem)); }
  void warning(Problem problem) { warnings_.push_back(std::move(problem)); }

  [[nodiscard]] bool none() const { return errors_.empty(); }
  [[nodiscard]] const std::vector<Problem>& errors() const { return errors_; }
  [[nodiscard]] const std::vector<Problem>& warnings() const { return warnings_; }

 private:
  std::vector<Problem> errors_;
  std::vector<Problem> warnings_;
};

}  // namespace bundletool
