#pragma once

#include <string>

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// A step of a run that this engine can plan but not carry out yet. Reaching it ends the run with a clear error and
/// state QVNInstallerStateFailed; the step itself does nothing, and what steps before it did stays.
class QVNUnavailableStrategy : public QVNInstallStepStrategy {
 public:
  using QVNInstallStepStrategy::QVNInstallStepStrategy;
  bool execute(bool previousSuccess) override;
};

/// Such a step that may be bound to the receipt location.
class QVNUnavailableLocalStrategy : public QVNUnavailableStrategy {
 public:
  QVNUnavailableLocalStrategy(PropertyList installPhaseDictionary, std::string stepName,
                              QVNInstallStepStrategy* parentStep, InstallRun& controller, SharedPlan plan,
                              bool runLocally)
      : QVNUnavailableStrategy(std::move(installPhaseDictionary), std::move(stepName), parentStep, controller,
                               std::move(plan)),
        isLocal_(runLocally) {}
  /// Whether the step may run from wherever the engine was started, or from the receipt only.
  [[nodiscard]] bool isLocal() const { return isLocal_; }

 private:
  bool isLocal_;
};

/// Hands a phase to an engine in another bundle.
class QVNExternalInstallationDeployerStrategy : public QVNUnavailableStrategy {
 public:
  using QVNUnavailableStrategy::QVNUnavailableStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNExternalInstallationDeployerStrategy"; }
};

/// Serves an installer as the installed product's receipt.
class QVNReceiptServiceStrategy : public QVNUnavailableStrategy {
 public:
  using QVNUnavailableStrategy::QVNUnavailableStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNReceiptServiceStrategy"; }
};

/// Deletes the receipt of the product that was removed.
class QVNRemoveReceiptStrategy : public QVNUnavailableStrategy {
 public:
  using QVNUnavailableStrategy::QVNUnavailableStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNRemoveReceiptStrategy"; }
};

/// Keeps modifiable files aside while an older product is removed.
class QVNCacheComponentStrategy : public QVNUnavailableStrategy {
 public:
  using QVNUnavailableStrategy::QVNUnavailableStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNCacheComponentStrategy"; }
};

/// Puts the files back that were kept aside.
class QVNRestoreCacheComponentStrategy : public QVNUnavailableStrategy {
 public:
  using QVNUnavailableStrategy::QVNUnavailableStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNRestoreCacheComponentStrategy"; }
};

/// Stops what runs of the planned components.
class QVNProcessStopStrategy : public QVNUnavailableLocalStrategy {
 public:
  using QVNUnavailableLocalStrategy::QVNUnavailableLocalStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNProcessStopStrategy"; }
};

/// Removes the files of the planned components.
class QVNRemoveComponentsStrategy : public QVNUnavailableLocalStrategy {
 public:
  using QVNUnavailableLocalStrategy::QVNUnavailableLocalStrategy;
  [[nodiscard]] std::string_view className() const override { return "QVNRemoveComponentsStrategy"; }
};

}  // namespace deployer
