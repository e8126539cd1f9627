#include "InstallationDeployer/steps/QVNInstallStepStrategy.h"

#include <optional>

#include "general/foundation/Thread.h"

namespace deployer {
namespace {

constexpr std::uint64_t kProgressPerPoll = 10;
constexpr std::uint64_t kCompleteProgress = 100;

}  // namespace

QVNInstallStepStrategy::QVNInstallStepStrategy(PropertyList installPhaseDictionary, std::string stepName,
                                               QVNInstallStepStrategy* parentStep, StepContext& controller,
                                               SharedPlan plan)
    : installPhaseDictionary_(std::move(installPhaseDictionary)),
      name_(std::move(stepName)),
      parentStep_(parentStep),
      controller_(controller),
      plan_(std::move(plan)) {}

void QVNInstallStepStrategy::setInstallerState(QVNInstallerState state) {
  keepInstallerState(state);
  if (!isCompletionState(state)) {
    passOnInstallerState(state);
  }
}

void QVNInstallStepStrategy::keepInstallerState(QVNInstallerState state) {
  logging::debug("----- <%@>[%@ setInstallerState:%d]", foundation::currentThreadName(), qualifiedName(),
                 static_cast<std::uint32_t>(state));
  installerState_ = state;
}

void QVNInstallStepStrategy::passOnInstallerState(QVNInstallerState state) {
  if (parentStep_ != nullptr) {
    parentStep_->setInstallerState(state);
  } else {
    controller_.setInstallerState(state);
  }
}

bool QVNInstallStepStrategy::execute(bool previousSuccess) {
  logging::debug(">>> executing %@ with plan: %@", qualifiedName(), planDescription(plan_));
  return previousSuccess && work();
}

std::uint64_t QVNInstallStepStrategy::getProgress() {
  std::uint64_t progress = progressValue_;
  // Two pollers may meet here; each adds its own step and none goes past the end.
  while (progress + kProgressPerPoll <= kCompleteProgress &&
         !progressValue_.compare_exchange_weak(progress, progress + kProgressPerPoll)) {
  }
  return progressValue_;
}

std::string QVNInstallStepStrategy::planDescription(const Plan& components) {
  std::string text = "(";
  std::string_view separator;
  for (const std::string& component : components) {
    text.append(separator).append(component);
    separator = ", ";
  }
  return text + ")";
}

std::string QVNInstallStepStrategy::planDescription(const SharedPlan& components) {
  return planDescription(components ? *components : Plan{});
}

std::string QVNInstallStepStrategy::qualifiedName() const {
  return parentStep_ == nullptr ? name_ : parentStep_->qualifiedName() + "." + name_;
}

std::string QVNInstallStepStrategy::description() const {
  return foundation::format("<%@: > %@", className(), qualifiedName());
}

bool QVNInstallStepStrategy::failWith(QVNInstallerState state) {
  setInstallerState(state);
  return false;
}

bool QVNInstallStepStrategy::requireReceiptLocation() {
  if (configuration().bundlePathIsReceipt()) {
    return true;
  }
  setInstallerState(QVNInstallerStateFailed);
  logging::error("%@ must run from the receipt location.\n\tCurrently running from: %@", className(),
                 configuration().bundlePath());
  return false;
}

bool QVNInstallStepStrategy::requireReadManifests() { return !manifest().couldNotRead() || failWith(); }

const Plan& QVNInstallStepStrategy::plannedComponents() const {
  static const Plan kNone;
  return plan_ ? *plan_ : kNone;
}

std::string QVNInstallStepStrategy::productName() const { return configuration().productName().value_or(""); }

bool QVNInstallStepStrategy::walkPlannedEntries(const EntryBlock& block) {
  const bool walked = manifest().walkManifestFileListForComponents(
      plan_ ? std::optional(*plan_) : std::nullopt, true, true,
      [&block](const std::string& component, const PropertyList&, const FileEntry& entry) {
        return block(component, entry);
      });
  // A manifest that cannot be read has been logged, but no entry has set a state then.
  if (!walked && !isFailureState(installerState())) {
    setInstallerState(QVNInstallerStateFailed);
  }
  return walked;
}

std::vector<std::string> descriptionsOf(const StepList& steps) {
  std::vector<std::string> descriptions;
  descriptions.reserve(steps.size());
  for (const auto& step : steps) {
    descriptions.push_back(step->description());
  }
  return descriptions;
}

}  // namespace deployer
