#pragma once

#include <memory>
#include <optional>

#include "InstallationDeployer/checks/BundleCheck.h"
#include "frontend/Presenter.h"
#include "general/foundation/execution/RunLoop.h"

namespace frontend {

/// Has the bundle beside this program checked, on other threads, while the run loop of this one is turned: so progress
/// shows, and other sources of the loop, such as signals, may leave. One examination per object.
class BundleExamination {
 public:
  /// @param presenter outlives this.
  BundleExamination(Presenter& presenter, deployer::BundleCheckRequest request);

  /// What was found; nothing when it was left before. Throws when the check could not be carried out.
  [[nodiscard]] std::optional<deployer::BundleReport> examine();
  /// Ends it before it is done, from a handler of the loop.
  void leave() { progress_.stop(); }

 private:
  void waitForCheck();
  void showProgress();

  Presenter& presenter_;
  const deployer::BundleCheckRequest request_;
  deployer::CheckProgress progress_;
  std::shared_ptr<foundation::RunLoop> loop_ = foundation::RunLoop::current();
  int shownPercent_ = 0;
};

}  // namespace frontend
