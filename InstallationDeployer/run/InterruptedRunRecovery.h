#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/journal/ChangeJournal.h"
#include "general/foundation/Result.h"
#include "general/foundation/propertylist/PropertyList.h"

namespace deployer {

/// Puts right what an interrupted run left, before the next run of the product does its own work: stops what may run
/// of it, saves the user's settings, and takes away every file that may be half changed. Used on the main thread.
class InterruptedRunRecovery {
 public:
  explicit InterruptedRunRecovery(const ChangeJournal& interrupted);

  /// @param forGood whether the product is removed with its modifiable files.
  [[nodiscard]] foundation::Status run(bool forGood);

  /// Paths of modifiable files that are not there, because an interrupted run took them away for good or put something
  /// else in their place: nobody but an install brings them back.
  /// @param journal of the run that puts things right; it has the manifests of what was interrupted, too.
  [[nodiscard]] static foundation::Result<std::set<std::string, std::less<>>> missingModifiableFiles(
      const ChangeJournal& journal);

 private:
  struct Component {
    const JournaledManifest* entry;
    foundation::PropertyList manifest;
  };

  void stopProcesses() const;
  [[nodiscard]] foundation::Status saveUsersFiles() const;
  /// Whether what lies at the path of an owed file, rather than its copy in the cache, is what the user wants back.
  [[nodiscard]] foundation::Result<bool> countsMoreThanItsCopy(const std::string& path) const;
  [[nodiscard]] foundation::Result<bool> isUsersFile(const std::string& path) const;
  [[nodiscard]] foundation::Result<bool> isUsersLink(const std::string& path) const;
  [[nodiscard]] bool anyPlaced(const std::function<bool(const FileEntry&)>& holds) const;
  [[nodiscard]] foundation::Status removeFiles(bool forGood) const;

  const ChangeJournal& interrupted_;
  std::vector<Component> components_;
};

}  // namespace deployer
