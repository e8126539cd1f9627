#include "InstallationDeployer/steps/QVNAggregateInstallStrategy.h"

#include "general/logging/SystemLog.h"

namespace deployer {

QVNAggregateInstallStrategy::QVNAggregateInstallStrategy(PropertyList dictionary, std::string stepName, StepList steps,
                                                         QVNInstallStepStrategy* parent, StepContext& controller)
    : QVNInstallStepStrategy(std::move(dictionary), std::move(stepName), parent, controller, nullptr),
      steps_(std::move(steps)) {
  for (const auto& step : steps_) {
    step->setParentStep(this);
  }
}

bool QVNAggregateInstallStrategy::execute(bool previousSuccess) {
  QVNInstallStepStrategy::execute(previousSuccess);
  bool running = previousSuccess;
  QVNInstallerState recordedFailure = QVNInstallerStateSuccess;
  for (const auto& child : steps_) {
    ++currentStepIndex_;
    bool success = child->execute(running);
    if (success && controller().installationCancelled()) {
      success = false;
      recordedFailure = QVNInstallerStateCancelled;
    }
    if (!success && recordedFailure == QVNInstallerStateSuccess &&
        child->installerState() != QVNInstallerStateSuccess) {
      recordedFailure = child->installerState();
      logging::debug("%@ failed. Installer state %d", child->qualifiedName(),
                     static_cast<std::uint32_t>(recordedFailure));
    }
    logging::notice("\"%@\" success: %@", child->qualifiedName(), success ? "YES" : "NO");
    running = success;
  }
  ++currentStepIndex_;
  setInstallerState(running ? QVNInstallerStateSuccess : recordedFailure);
  return running;
}

std::uint64_t QVNAggregateInstallStrategy::getProgress() {
  const std::int32_t current = currentStepIndex_;
  if (current < 0) {
    return 0;
  }
  const auto count = static_cast<std::int32_t>(steps_.size());
  if (current >= count) {
    return 100;
  }
  const float base = static_cast<float>(current) * 100.0F / static_cast<float>(count);
  const double childProgress = static_cast<double>(steps_[static_cast<std::size_t>(current)]->getProgress());
  return static_cast<std::uint64_t>(base + static_cast<float>(childProgress * (1.0 / static_cast<double>(count))));
}

}  // namespace deployer
