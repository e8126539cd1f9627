#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/InstallAction.h"
#include "InstallationDeployer/install/InstallResources.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/files/FileAttributes.h"

namespace deployer {

/// Puts the files of the planned components on disk: checks the space, then directories and files in the order of the
/// manifest, then the links. The payload holds each file under its checksum in a folder named after its component.
///
/// The files of a long list are prefetched on helper threads; everything that shows on disk is made by the thread that
/// calls, in the manifest's order, and nothing shows after an entry that failed. Every failure is one line of the log.
class QVNInstallComponentsStrategy : public QVNInstallStepStrategy {
 public:
  using Names = std::vector<std::string>;

  using QVNInstallStepStrategy::QVNInstallStepStrategy;

  /// Whether the system volume has room for the components and the receipt.
  bool CheckDiskSpaceFor(const Names& components);
  /// Returns true once everything is installed and on the disk.
  bool InstallComponents(const Names& components);
  /// Installs one directory or file.
  /// @param source the payload's root.
  /// @param destination the root that the entry's path is appended to.
  /// @param attributes for directories that no entry describes.
  bool copyFileWithManifestInfo(const FileEntry& entry, const std::string& forComponent, const std::string& source,
                                const std::string& destination, const foundation::FileAttributes& attributes);
  bool createSymbolicLinks(const std::vector<FileEntry>& entries, const std::string& destination);
  /// Goes on after a link that could not be made, but not after an item that could not be removed.
  /// @param installerState set to installing, or to failed.
  static bool createSymbolicLinks(const std::vector<FileEntry>& entries, const std::string& destination,
                                  QVNInstallerState& installerState);

  [[nodiscard]] std::string_view className() const override { return "QVNInstallComponentsStrategy"; }

 private:
  [[nodiscard]] bool work() override;
  [[nodiscard]] bool installComponent(const InstallRules& rules);
  /// Everything but the component's links, which it gives; nothing when it failed.
  [[nodiscard]] std::optional<std::vector<FileEntry>> installItems(const InstallRules& rules);

  InstallResources resources_;
};

}  // namespace deployer
