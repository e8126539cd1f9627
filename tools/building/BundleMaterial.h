#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/building/AuthoringPlist.h"
#include "tools/building/BundleDescription.h"
#include "tools/rules/Problem.h"

namespace bundletool {

/// What a call of the tool says about the bundle, beside its description. Paths are ready to be opened.
struct BundleSettings {
  std::string output;           ///< the folder that the bundle is made in
  std::string defaultEngine;    ///< the engine where the description names none
  std::string defaultFrontEnd;  ///< the front end where the description names none
  bool force = false;           ///< replace a bundle that is there
  bool rootOwnerGroup = false;  ///< record owner and group 0 for whatever is staged, as the description may say too
  std::uint32_t builder = 0;    ///< user who builds
};

/// What a bundle will be made of, as it was found before any of it was read.
struct BundleMaterial {
  std::string destination;      ///< where the bundle will lie
  std::string engine;           ///< an executable file
  std::string frontEnd;         ///< an executable file
  bool rootOwnerGroup = false;  ///< whatever is staged is recorded with owner and group 0
  std::uint64_t files = 0;      ///< regular files that will be read, each once per product
  std::uint64_t bytes = 0;      ///< in them
  std::vector<PayloadReference> references;
};

/// Looks at everything that a description names, so that a build which must fail does so before it writes anything.
/// Of use only if no problem was added.
/// @param description was read without a problem.
[[nodiscard]] BundleMaterial examineMaterial(const BundleDescription& description, const BundleSettings& settings,
                                             Problems& problems);

}  // namespace bundletool
