#pragma once

#include <string>

namespace bundletool {

/// `installer-tool build`.
struct BuildCommand {
  std::string description;
  std::string output;
  std::string defaultEngine;
  std::string defaultFrontEnd;
  bool force = false;
  bool quiet = false;
  bool verbose = false;

  /// Builds, tells what is wrong, and answers the exit code.
  [[nodiscard]] int run() const;
};

}  // namespace bundletool
