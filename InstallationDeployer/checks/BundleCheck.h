#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "InstallationDeployer/checks/BundleProblem.h"
#include "InstallationDeployer/checks/CheckProgress.h"

namespace deployer {

/// What is to be looked at.
struct BundleCheckRequest {
  std::string bundlePath;
  std::optional<std::string> product;  ///< nothing: each that the bundle has, for the engine chooses
  bool comparesChecksums = true;
};

/// What was found.
struct BundleReport {
  std::vector<BundleProblem> problems;  ///< the first ones, in the bundle's order
  std::uint64_t problemCount = 0;       ///< all of them
  std::vector<std::string> warnings;    ///< what stops no install; not fit to be printed before it is escaped
  std::uint64_t files = 0;              ///< of the payload that an install would read
  std::uint64_t bytes = 0;              ///< in them
  bool comparedChecksums = false;

  [[nodiscard]] bool isFit() const { return problemCount == 0; }
  /// Whether nothing is wrong but that the machine has too little space.
  [[nodiscard]] bool lacksOnlySpace() const {
    return problemCount == 1 && problems.front().kind == BundleProblem::Kind::Space;
  }
};

/// Looks at everything that an install relies on and that can be seen before it changes anything: index, manifests,
/// payload with its checksums, and space. It changes nothing, waits for nothing but the disk, and refuses no bundle
/// that the engine would install. The bundle may be hostile. What a product without that name, or none at all, means
/// for the command is left to the engine.
[[nodiscard]] BundleReport checkBundle(const BundleCheckRequest& request, CheckProgress& progress);

/// What keeps a removal from reading the receipt that it runs from, or nothing. A receipt without index may have been
/// taken away by another removal; the engine knows what that means.
[[nodiscard]] BundleReport checkReceipt(const std::string& bundlePath);

}  // namespace deployer
