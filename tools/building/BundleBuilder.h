#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "InstallationDeployer/QVNInstallerManifest.h"
#include "tools/building/BundleDescription.h"
#include "tools/building/BundleMaterial.h"
#include "tools/building/PayloadStore.h"
#include "tools/building/ProgressBar.h"
#include "tools/rules/Problem.h"

namespace bundletool {

/// Makes a complete bundle from a description, or nothing. One build per object.
///
/// Everything is examined first, then the bundle is made under another name beside its place and put there as a whole.
/// It asks for an Interruption between any two files; the caller has one if signals shall not end the process.
class BundleBuilder {
 public:
  /// Everything passed by reference outlives this. `description` was read without a problem.
  BundleBuilder(const BundleDescription& description, BundleSettings settings, Problems& problems,
                ProgressBar& progress);

  /// Checks everything the description names, then builds. The path of the bundle, or nothing and problems (none when
  /// the build was interrupted).
  [[nodiscard]] std::optional<std::string> build();

 private:
  // Where one of these fails it has added a problem, or the work was interrupted.
  [[nodiscard]] bool fill(const std::string& bundle);
  [[nodiscard]] bool layOut(const std::string& bundle);
  [[nodiscard]] bool addExecutable(const std::string& bundle, const std::string& source, std::string_view name);
  [[nodiscard]] bool registerComponents(deployer::QVNInstallerManifest& manifests, PayloadStore& payload);
  [[nodiscard]] bool registerComponent(deployer::QVNInstallerManifest& manifests, PayloadStore& payload,
                                       const ComponentDescription& component);
  [[nodiscard]] bool registerTools(deployer::QVNInstallerManifest& manifests);
  [[nodiscard]] bool mergeOptions(deployer::QVNInstallerManifest& manifests);
  [[nodiscard]] bool settleReceiptSize(deployer::QVNInstallerManifest& manifests);
  void checkReferences(const PayloadStore& payload);
  [[nodiscard]] bool mayGoOn() const;
  /// Adds a problem of the description; false.
  [[nodiscard]] bool fail(const std::string& key, const std::string& what, const std::string& advice = "");

  const BundleDescription& description_;
  const BundleSettings settings_;
  Problems& problems_;
  ProgressBar& progress_;
  BundleMaterial material_;  // since build() has examined it
};

}  // namespace bundletool
