#pragma once

#include <functional>
#include <string_view>

#include "InstallationDeployer/checks/BundleCheck.h"
#include "frontend/RunOutcome.h"
#include "frontend/watch/RunFollower.h"

namespace frontend {

/// Said at the first Ctrl-C.
inline constexpr std::string_view kCancelText =
    "Cancelling: the engine finishes the step that is running and stops then. What has been done by then stays done.\n"
    "Press Ctrl-C again to leave the engine alone and return at once.";

/// Said when the engine runs but cannot be reached.
inline constexpr std::string_view kUnreachableText =
    "The engine runs but cannot be reached: how far it is cannot be shown, and it may wait for ever to be seen. "
    "Its log\n"
    "says why, and whether it has succeeded or failed; then it may be ended. Press Ctrl-C twice to leave it alone.";

/// Said, with the reason, when the engine does not take the order.
inline constexpr const char* kRefusedText = "The engine goes on.";

/// What a check is called while it goes on.
inline constexpr std::string_view kCheckingText = "Checking the bundle";

/// Shows a run to whoever reads standard output.
class Presenter : public RunListener {
 public:
  /// Takes text that is complete for the moment, and passes it on at once.
  using Output = std::function<void(std::string_view)>;

  /// The bundle is being checked, before the engine is started.
  virtual void checking(int percent) = 0;
  /// The bundle was checked and found fit.
  virtual void checked(const deployer::BundleReport& report) = 0;
  /// The bundle was found unfit: what is wrong with it. The end follows.
  virtual void refused(const deployer::BundleReport& report) = 0;
  /// The engine was started, or is to be watched; before anything of the run itself.
  virtual void begin(const RunFacts& facts) = 0;
  /// The engine has been asked to cancel, or will be once it can be.
  virtual void cancelAsked() = 0;
  /// The terminal may have another width now.
  virtual void widthChanged() {}
  /// The last call.
  virtual void end(const RunOutcome& outcome, const RunFacts& facts) = 0;
};

}  // namespace frontend
