#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "InstallationDeployer/FileEntry.h"
#include "InstallationDeployer/steps/StepContext.h"
#include "general/foundation/propertylist/PropertyList.h"
#include "general/logging/SystemLog.h"

namespace deployer {

/// Names of the components that the steps of one tree work on, filled by one step and read by the later ones.
using Plan = std::vector<std::string>;
using SharedPlan = std::shared_ptr<Plan>;

/// One unit of work of a run.
///
/// execute() takes whether the steps before succeeded and returns its own success; what a step does stands in its
/// work(). A step that fails sets a failure state first; nothing is thrown to report it.
///
/// Belongs to the main thread, which runs execute(). Meanwhile the thread that serves watchers calls getProgress(),
/// and, while a receipt's states are mirrored into the step, setInstallerState() and what that calls on the way to the
/// run.
class QVNInstallStepStrategy {
 public:
  using PropertyList = foundation::PropertyList;

  /// @param installPhaseDictionary the install phase that the step works for, or nil.
  /// @param parentStep the step that holds this one, or null; it outlives this step.
  /// @param controller the run; it outlives this step.
  /// @param plan shared with the other steps of the tree, or null.
  QVNInstallStepStrategy(PropertyList installPhaseDictionary, std::string stepName, QVNInstallStepStrategy* parentStep,
                         StepContext& controller, SharedPlan plan);
  virtual ~QVNInstallStepStrategy() = default;
  QVNInstallStepStrategy(const QVNInstallStepStrategy&) = delete;
  QVNInstallStepStrategy& operator=(const QVNInstallStepStrategy&) = delete;

  [[nodiscard]] QVNInstallerState installerState() const { return installerState_; }
  /// Keeps the state. An active state climbs to the root and from there to the run; a final state stays here, the
  /// parent reports a summary when it is done.
  virtual void setInstallerState(QVNInstallerState state);
  [[nodiscard]] std::uint64_t progressValue() const { return progressValue_; }
  void setProgressValue(std::uint64_t value) { progressValue_ = value; }
  [[nodiscard]] QVNInstallerManifest& manifest() const { return controller_.manifest(); }
  [[nodiscard]] const PropertyList& installPhaseDictionary() const { return installPhaseDictionary_; }
  [[nodiscard]] StepContext& controller() const { return controller_; }
  [[nodiscard]] QVNInstallConfiguration& configuration() const { return controller_.configuration(); }
  [[nodiscard]] const SharedPlan& plan() const { return plan_; }
  [[nodiscard]] QVNInstallStepStrategy* parentStep() const { return parentStep_; }
  void setParentStep(QVNInstallStepStrategy* parent) { parentStep_ = parent; }
  [[nodiscard]] const std::string& name() const { return name_; }

  /// Logs that the step begins and does its work. Handed false, the step does nothing, sets no state and returns false.
  /// Overridden only by steps that act after a failure, too; they call this one first.
  virtual bool execute(bool previousSuccess);
  /// 0 to 100. A step that does not know answers 10 more each time it is asked.
  [[nodiscard]] virtual std::uint64_t getProgress();
  /// The names in brackets, for log lines.
  [[nodiscard]] static std::string planDescription(const Plan& components);
  [[nodiscard]] static std::string planDescription(const SharedPlan& components);
  /// The names from the root to this step, joined by dots.
  [[nodiscard]] std::string qualifiedName() const;
  /// `<Class: > qualified name`.
  [[nodiscard]] std::string description() const;
  [[nodiscard]] virtual std::string_view className() const { return "QVNInstallStepStrategy"; }

 protected:
  /// (component name, file entry) -> go on.
  using EntryBlock = std::function<bool(const std::string&, const FileEntry&)>;

  /// What the step is there for; its success. Called once nothing before the step has failed.
  [[nodiscard]] virtual bool work() { return true; }
  /// Logs and keeps the state without telling anybody.
  void keepInstallerState(QVNInstallerState state);
  /// Hands the state to the parent, or to the run where there is none.
  void passOnInstallerState(QVNInstallerState state);

  /// These end the step's work: log what is wrong as an error, where there is something to say, set a failure state and
  /// return false, to be returned by the caller.
  template <class... Arguments>
  bool fail(std::string_view message, const Arguments&... arguments) {
    return failWith(QVNInstallerStateFailed, message, arguments...);
  }
  template <class... Arguments>
  bool failWith(QVNInstallerState state, std::string_view message, const Arguments&... arguments) {
    logging::error(message, arguments...);
    return failWith(state);
  }
  bool failWith(QVNInstallerState state = QVNInstallerStateFailed);

  /// Whether the engine runs from the receipt's location. Otherwise the step, which may run from nowhere else, has
  /// failed.
  [[nodiscard]] bool requireReceiptLocation();

  /// Whether everything that was asked of the manifests so far could be read. Otherwise the step has failed; what could
  /// not be read is in the log. For steps that may not take an unreadable manifest for an empty one.
  [[nodiscard]] bool requireReadManifests();

  /// The names in the plan; none where there is no plan.
  [[nodiscard]] const Plan& plannedComponents() const;
  /// The product's name; empty where it is not known.
  [[nodiscard]] std::string productName() const;
  /// Calls the block for the file entries of the planned components, what a directory holds before the directory. Ends
  /// at the first entry that fails. Without a plan, or with a manifest that cannot be read, it fails, too; the step
  /// then has a failure state in any case.
  [[nodiscard]] bool walkPlannedEntries(const EntryBlock& block);

 private:
  PropertyList installPhaseDictionary_;
  std::string name_;
  QVNInstallStepStrategy* parentStep_;
  StepContext& controller_;
  SharedPlan plan_;
  std::atomic<QVNInstallerState> installerState_ = QVNInstallerStateSuccess;
  std::atomic<std::uint64_t> progressValue_ = 0;
};

using StepList = std::vector<std::unique_ptr<QVNInstallStepStrategy>>;
/// The descriptions of the steps, for log lines.
[[nodiscard]] std::vector<std::string> descriptionsOf(const StepList& steps);

}  // namespace deployer
