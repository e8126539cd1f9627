#pragma once

#include <string>
#include <vector>

#include "InstallationDeployer/QVNInstallerManifest.h"
#include "tools/building/AuthoringPlist.h"
#include "tools/building/BundleDescription.h"
#include "tools/building/PathConflicts.h"
#include "tools/building/PayloadStore.h"
#include "tools/building/ProgressBar.h"
#include "tools/building/TemporaryBundle.h"
#include "tools/rules/Problem.h"

namespace bundletool {

/// Makes a complete bundle from a description, or nothing. One build per object.
class BundleBuilder {
 public:
  struct Settings {
    std::string output;           ///< the folder that the bundle is made in
    std::string defaultEngine;    ///< the engine where the description names none
    std::string defaultFrontEnd;  ///< the front end where the description names none
    bool force = false;           ///< replace a bundle that is there
  };

  /// Everything passed by reference outlives this. `description` was read without a problem.
  BundleBuilder(const BundleDescription& description, Settings settings, Problems& problems, ProgressBar& progress);

  /// Checks everything the description names, then builds. The path of the bundle, or nothing and problems (none when
  /// the build was interrupted).
  [[nodiscard]] std::optional<std::string> build();

 private:
  [[nodiscard]] bool examine();
  void examineComponents();
  void examineExecutable(const std::string& path, const std::string& key);
  void examineOutput();
  [[nodiscard]] bool mayGoOn() const;
  [[nodiscard]] bool fill(const std::string& bundle);
  [[nodiscard]] bool layOut(const std::string& bundle);
  [[nodiscard]] bool addExecutable(const std::string& bundle, const std::string& source, std::string_view name);
  [[nodiscard]] bool registerComponents(deployer::QVNInstallerManifest& manifests, PayloadStore& payload);
  [[nodiscard]] bool registerComponent(deployer::QVNInstallerManifest& manifests, PayloadStore& payload,
                                       const ComponentDescription& component);
  [[nodiscard]] bool registerTools(deployer::QVNInstallerManifest& manifests);
  [[nodiscard]] bool mergeOptions(deployer::QVNInstallerManifest& manifests);
  void checkReferences(const PayloadStore& payload);
  [[nodiscard]] bool settleReceiptSize(deployer::QVNInstallerManifest& manifests);
  [[nodiscard]] bool fail(const std::string& key, const std::string& what, const std::string& advice = "");
  [[nodiscard]] const std::string& engine() const;
  [[nodiscard]] const std::string& frontEnd() const;

  const BundleDescription& description_;
  const Settings settings_;
  const std::string destination_;
  Problems& problems_;
  ProgressBar& progress_;
  std::vector<std::pair<std::string, PayloadReference>> references_;  // component, what it refers to
  std::uint64_t files_ = 0;
  std::uint64_t bytes_ = 0;
};

}  // namespace bundletool
