#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

namespace deployer {

/// Runs its children in order and hands the success of each to the next. After a failure the rest are still called,
/// with false, so that a child made for cleaning up can do its work. Ends with success, or with the state of the first
/// child that failed with one, or as cancelled when the run was cancelled while a child succeeded. Meant to run once.
class QVNAggregateInstallStrategy : public QVNInstallStepStrategy {
 public:
  QVNAggregateInstallStrategy(PropertyList dictionary, std::string stepName, StepList steps,
                              QVNInstallStepStrategy* parent, StepContext& controller);

  [[nodiscard]] const StepList& steps() const { return steps_; }
  /// -1 before the run, the number of children after it.
  [[nodiscard]] std::int32_t currentStepIndex() const { return currentStepIndex_; }

  bool execute(bool previousSuccess) override;
  /// Every child counts equally.
  [[nodiscard]] std::uint64_t getProgress() override;
  [[nodiscard]] std::string_view className() const override { return "QVNAggregateInstallStrategy"; }

 private:
  StepList steps_;
  std::atomic<std::int32_t> currentStepIndex_ = -1;
};

}  // namespace deployer
