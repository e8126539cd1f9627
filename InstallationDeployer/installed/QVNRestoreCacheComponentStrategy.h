#pragma once

#include <string>

#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Puts the modifiable files back that were kept aside, in the place of the newly installed ones, and removes the
/// cache.
class QVNRestoreCacheComponentStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNRestoreCacheComponentStrategy"; }

  /// Replaces the target by the cached file. A cached file that is gone by now is no failure.
  bool copyFile(const std::string& cached, const std::string& target);

 private:
  [[nodiscard]] bool work() override;
  bool restoreFiles();
  bool restoreEntry(const FileEntry& entry);
  bool restoreFile(const std::string& path);
  bool restoreMatches(const std::string& path);
  [[nodiscard]] bool restoreOwedFiles();
  [[nodiscard]] bool flushRestored();
  [[nodiscard]] foundation::Status removeCache();

  std::set<std::string> restored_;
};

}  // namespace deployer
