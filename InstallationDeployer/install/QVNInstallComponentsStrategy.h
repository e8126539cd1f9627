#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/install/MemoryBudget.h"
#include "InstallationDeployer/install/PayloadFileReader.h"
#include "InstallationDeployer/install/PayloadPrefetch.h"
#include "InstallationDeployer/install/WrittenVolumes.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"
#include "general/foundation/Error.h"
#include "general/foundation/files/FileAttributes.h"

namespace deployer {

/// Puts the files of the planned components on disk: checks the space, then directories and files in the order of the
/// manifest, then the links. The payload holds each file under its checksum in a folder named after its component.
///
/// Files of a long list are prepared ahead on helper threads; everything that shows on disk is made by the thread that
/// calls, in the manifest's order, and nothing shows after an entry that failed. Every failure is one line of the log.
class QVNInstallComponentsStrategy : public QVNInstallStepStrategy {
 public:
  using Names = std::vector<std::string>;

  QVNInstallComponentsStrategy(PropertyList installPhaseDictionary, std::string stepName,
                               QVNInstallStepStrategy* parentStep, StepContext& controller, SharedPlan plan);

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
  /// What the entries of one component share.
  struct Component {
    std::string name;
    std::string source;       ///< the payload's root
    std::string destination;  ///< the root that paths are appended to
    foundation::FileAttributes directoryAttributes;
  };

  [[nodiscard]] bool work() override;
  [[nodiscard]] bool installComponent(const Component& component);
  [[nodiscard]] bool installEntry(const FileEntry& entry, const Component& component);
  [[nodiscard]] bool isKeptAsItIs(const FileEntry& entry) const;
  void prepareAhead(const PropertyList& manifest, const Component& component);
  [[nodiscard]] static std::optional<PayloadFile> payloadFileFor(const FileEntry& entry, const Component& component);
  [[nodiscard]] bool publish(PayloadPrefetch::Prepared prepared, const Component& component);

  [[nodiscard]] bool copyDirectory(const FileEntry& entry, const std::string& path,
                                   const std::optional<std::string>& externalPath,
                                   const foundation::FileAttributes& attributes);
  [[nodiscard]] bool refillDirectory(const std::string& path, const std::string& externalPath,
                                     const foundation::FileAttributes& own, const foundation::FileAttributes& parents);
  [[nodiscard]] bool setDirectoryAttributes(const std::string& path, const foundation::FileAttributes& attributes);
  [[nodiscard]] bool copyFile(const FileEntry& entry, const std::string& path, const std::string& component,
                              const std::optional<std::string>& sourcePath,
                              const foundation::FileAttributes& directoryAttributes);
  [[nodiscard]] bool writeFile(const PayloadFileReader::Content& content, const std::string& path,
                               const foundation::FileAttributes& attributes);
  [[nodiscard]] bool makeParent(const std::string& path, const foundation::FileAttributes& attributes);
  [[nodiscard]] bool flushWrittenVolumes();

  template <class Attempt>
  [[nodiscard]] auto withSpareResources(const Attempt& attempt) -> decltype(attempt());

  const bool skipsSystemPaths_;
  const unsigned helpers_;
  MemoryBudget allowance_;
  PayloadFileReader reader_;
  WrittenVolumes writtenVolumes_;
  std::string lastFolder_;  // the folder of the file published last: there, and its file system noted
  std::optional<PayloadPrefetch> ahead_;
};

}  // namespace deployer
