#pragma once

#include <optional>
#include <string>

#include "InstallationDeployer/InstallAction.h"
#include "InstallationDeployer/install/InstallResources.h"
#include "InstallationDeployer/install/PayloadPrefetch.h"
#include "general/foundation/files/PreparedFile.h"

namespace deployer {

/// Puts the files of one component on disk, each in one step under a name that shows it whole or not at all. Works on
/// the thread that runs the steps.
class FileInstaller {
 public:
  /// @param rules, resources, prefetch outlive this. The prefetch is given up when an entry runs short of what it
  /// holds.
  FileInstaller(const InstallRules& rules, InstallResources& resources, std::optional<PayloadPrefetch>& prefetch)
      : rules_(rules), resources_(resources), prefetch_(prefetch) {}

  /// Gives a file that was prefetched its name. Says nothing when that fails: the file is installed anew then.
  [[nodiscard]] bool publish(foundation::PreparedFile file, const std::string& destination);
  /// Reads, verifies and writes a file and logs what fails. An external source that is missing is no failure.
  [[nodiscard]] bool install(const InstallAction& action);

 private:
  [[nodiscard]] bool makeFolderOf(const std::string& path);
  [[nodiscard]] bool write(const PayloadFileReader::Content& content, const InstallAction& action);

  const InstallRules& rules_;
  InstallResources& resources_;
  std::optional<PayloadPrefetch>& prefetch_;
  std::string lastFolder_;  // the folder of the file published last: there, and its file system noted
};

}  // namespace deployer
