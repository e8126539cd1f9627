#pragma once

#include <string>
#include <vector>

#include "tools/building/BundleDescription.h"
#include "tools/building/InstallItem.h"
#include "tools/rules/Problem.h"

namespace bundletool {

/// A hand-written entry that takes its content from the payload by checksum.
struct PayloadReference {
  std::string component;  ///< in whose payload the content must be
  std::string checksum;
  std::string file;  ///< the authoring plist, for messages
  std::string key;   ///< and where in it
};

struct AuthoringPlist {
  std::vector<InstallItem> items;  ///< the entries of its list of files, wild-card entries left out
  std::vector<PayloadReference> references;
};

/// Checks the authoring plist of a component, which has one, against the format and against what is staged.
[[nodiscard]] AuthoringPlist examineAuthoringPlist(const ComponentDescription& component,
                                                   const std::vector<InstallItem>& staged, Problems& problems);

}  // namespace bundletool
