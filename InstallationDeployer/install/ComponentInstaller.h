#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/InstallAction.h"
#include "InstallationDeployer/install/DirectoryInstaller.h"
#include "InstallationDeployer/install/FileInstaller.h"
#include "InstallationDeployer/install/InstallResources.h"
#include "InstallationDeployer/install/PayloadPrefetch.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// Installs the entries of one component, each when its turn comes. Files of a long list are prefetched on helper
/// threads; everything that shows on disk is made by the thread that calls. What was prepared and not installed is
/// thrown away with this object. An entry that fails is one line of the log.
class ComponentInstaller {
 public:
  /// @param resources outlive this.
  ComponentInstaller(InstallRules rules, InstallResources& resources);
  ComponentInstaller(const ComponentInstaller&) = delete;
  ComponentInstaller& operator=(const ComponentInstaller&) = delete;

  /// Installs an entry of the component's manifest; to be called for each of them in order.
  [[nodiscard]] bool installNext(const foundation::PropertyList& manifest, const FileEntry& entry);
  /// Installs one directory or file by itself.
  [[nodiscard]] bool copy(const FileEntry& entry);
  /// The links that were met, which are to be made after everything else.
  [[nodiscard]] std::vector<FileEntry> takeLinks() { return std::move(links_); }

 private:
  void startPrefetch(const foundation::PropertyList& manifest);
  [[nodiscard]] bool install(PayloadPrefetch::Turn turn);

  const InstallRules rules_;
  InstallResources& resources_;
  std::optional<PayloadPrefetch> prefetch_;
  FileInstaller files_;
  DirectoryInstaller directories_;
  std::vector<FileEntry> links_;
};

}  // namespace deployer
