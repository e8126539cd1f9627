#pragma once

#include <string>

namespace bundletool {

/// `installer-tool show`.
struct ShowCommand {
  std::string bundle;
  bool json = false;

  /// Prints what the bundle holds, tells what is wrong with it, and answers the exit code.
  [[nodiscard]] int run() const;
};

}  // namespace bundletool
