#include "InstallationDeployer/receipt/ReceiptProcess.h"

#include <utility>

#include "InstallationDeployer/EngineOptions.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/foundation/execution/TaskExitSource.h"
#include "general/foundation/files/TrustedFolder.h"
#include "general/logging/SystemLog.h"

namespace deployer {

using foundation::RunLoop;
using foundation::Task;

namespace {

/// How long a process whose services are gone may take to end, before it counts as one that lives without them.
constexpr std::chrono::seconds kTimeToEnd(2);

}  // namespace

bool ReceiptProcess::start(const std::string& executable) {
  if (const auto others = foundation::trusted_folder::firstOfSomebodyElse(executable)) {
    logging::error(
        "Failed to launch receipt  at %@. Others than root decide what lies at %@: look at it, and give it to "
        "root or remove it.",
        executable, *others);
    return false;
  }
  Task task(executable, {kReceiptOption});
  task.setEndsWithParent(true);
  try {
    task.launch();
  } catch (const foundation::TaskLaunchException& exception) {
    logging::error("Failed to launch receipt  at %@. %@", executable, exception.what());
    return false;
  }
  executable_ = executable;
  task_.emplace(std::move(task));
  isEndReported_ = false;
  return true;
}

void ReceiptProcess::awaitServices(const bool& areAwaited, const std::function<void()>& look) {
  const auto loop = RunLoop::current();
  const foundation::TaskExitSource exit(*loop, *task_);
  bool hasEnded = false;
  auto lastLook = RunLoop::Clock::now();
  loop->runWhile([&] { return areAwaited && !hasEnded; },
                 [&] {
                   hasEnded = !task_->isRunning();
                   if (hasEnded) {
                     reportEnd("The receipt process %@ ended before its services could be reached (%@).");
                   } else if (RunLoop::Clock::now() - lastLook >= RunLoop::kTurn) {
                     lastLook = RunLoop::Clock::now();
                     look();
                   }
                 });
}

bool ReceiptProcess::hasVanished() {
  // A process closes its connections shortly before its exit can be seen.
  if (!task_ || !task_->waitUntilExit(RunLoop::Clock::now() + kTimeToEnd)) {
    return false;
  }
  reportEnd("The receipt process %@ ended unexpectedly (%@).");
  return true;
}

bool ReceiptProcess::awaitEnd(std::chrono::milliseconds patience) {
  if (!task_->waitUntilExit(RunLoop::Clock::now() + patience)) {
    return false;
  }
  task_.reset();
  return true;
}

void ReceiptProcess::reportEnd(std::string_view message) {
  if (!isEndReported_) {
    logging::error(message, executable_, task_->endDescription());
    isEndReported_ = true;
  }
}

}  // namespace deployer
