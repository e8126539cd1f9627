#pragma once

#include <string>

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Stops what runs of the planned components, before their files are removed or replaced: unloads their daemons and
/// their agents, and terminates their applications. That something does not stop fails nothing; a manifest that cannot
/// be read does, before anything is stopped.
class QVNProcessStopStrategy : public QVNInstallStepStrategy {
 public:
  /// @param runLocally whether the step may run from wherever the engine was started, or from the receipt only.
  QVNProcessStopStrategy(PropertyList installPhaseDictionary, std::string stepName, QVNInstallStepStrategy* parentStep,
                         StepContext& controller, SharedPlan plan, bool runLocally)
      : QVNInstallStepStrategy(std::move(installPhaseDictionary), std::move(stepName), parentStep, controller,
                               std::move(plan)),
        isLocal_(runLocally) {}
  [[nodiscard]] std::string_view className() const override { return "QVNProcessStopStrategy"; }
  [[nodiscard]] bool isLocal() const { return isLocal_; }
  void setIsLocal(bool isLocal) { isLocal_ = isLocal; }

  bool stopDaemonsFromPlan(const Plan& plan);
  bool stopAgentsFromPlan(const Plan& plan);
  bool stopExecutablesFromPlan(const Plan& plan);

 private:
  [[nodiscard]] bool work() override;
  bool isLocal_;
};

}  // namespace deployer
