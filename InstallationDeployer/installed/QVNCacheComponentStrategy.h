#pragma once

#include <optional>
#include <string>
#include <vector>

#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Keeps copies of the planned components' modifiable files aside while an older product is removed.
class QVNCacheComponentStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNCacheComponentStrategy"; }

  /// The items of a folder whose names fit a pattern in the path's last component: the text before its first "*" and
  /// the text after it. Without a "*" the path itself, whether it exists or not. Nothing when the folder cannot be
  /// listed.
  [[nodiscard]] static std::optional<std::vector<std::string>> matchesForWildCardedPath(const std::string& pattern);
  /// Copies the file to where the cache keeps the path. A file that is gone by now is no failure.
  bool copyFile(const std::string& source, const std::string& path);

 private:
  [[nodiscard]] bool work() override;
  [[nodiscard]] bool fillCache();
  [[nodiscard]] foundation::Status removeStaleCache();
  bool cacheEntry(const std::string& component, const FileEntry& entry);
  bool cacheMatches(const std::string& component, const FileEntry& entry, const std::string& source);
};

}  // namespace deployer
