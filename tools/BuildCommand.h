#pragma once

#include <string>

namespace bundletool {

/// `installer-tool build`. The members are what its command line says; paths are as the packager wrote them.
struct BuildCommand {
  std::string description;      ///< the property list that describes the bundle
  std::string output;           ///< the folder that the bundle is made in
  std::string defaultEngine;    ///< lies beside the tool
  std::string defaultFrontEnd;  ///< lies beside the tool
  bool force = false;           ///< replace a bundle that is there
  bool rootOwnerGroup = false;  ///< record owner and group 0 for whatever is staged
  bool quiet = false;           ///< print nothing but what is wrong
  bool verbose = false;         ///< print every log line

  /// Builds, tells what is wrong, and answers the exit code.
  [[nodiscard]] int run() const;
};

}  // namespace bundletool
