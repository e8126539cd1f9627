#pragma once

#include <string>

#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace foundation {
class GuardedRemoval;
}

namespace deployer {

/// Removes the files of the planned components, the contents of a directory before the directory. The first entry that
/// fails ends the step; what is missing already is no failure, and what was removed stays removed.
///
/// Nothing is removed that the manifests do not list: a directory that holds something else stays, and so does one in
/// a file's place. A link in a directory's place goes itself, unless it is the effective user's and leads to a
/// directory that holds something. No link of anybody else is followed on the way to an item, and none is removed
/// through. System folders are refused, their paths compared as they are written. Only an entry that says so takes a
/// directory with everything in it, and then nothing that is mounted there.
class QVNRemoveComponentsStrategy : public QVNInstallStepStrategy {
 public:
  /// @param runLocally whether the step may run from wherever the engine was started, or from the receipt only.
  QVNRemoveComponentsStrategy(PropertyList installPhaseDictionary, std::string stepName,
                              QVNInstallStepStrategy* parentStep, StepContext& controller, SharedPlan plan,
                              bool runLocally)
      : QVNInstallStepStrategy(std::move(installPhaseDictionary), std::move(stepName), parentStep, controller,
                               std::move(plan)),
        isLocal_(runLocally) {}
  [[nodiscard]] std::string_view className() const override { return "QVNRemoveComponentsStrategy"; }
  [[nodiscard]] bool isLocal() const { return isLocal_; }
  void setIsLocal(bool isLocal) { isLocal_ = isLocal; }

 private:
  [[nodiscard]] bool work() override;
  [[nodiscard]] bool removeEntry(const std::string& component, const FileEntry& entry,
                                 foundation::GuardedRemoval& removal);
  [[nodiscard]] bool removeWithContents(const std::string& path, foundation::GuardedRemoval& removal);
  [[nodiscard]] bool removeUnlessInUse(const std::string& path, foundation::GuardedRemoval& removal);
  [[nodiscard]] bool removeFile(const std::string& path, foundation::GuardedRemoval& removal);
  [[nodiscard]] bool isKept(const FileEntry& entry) const;

  bool isLocal_;
};

}  // namespace deployer
