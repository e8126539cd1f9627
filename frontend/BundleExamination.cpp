#include "frontend/BundleExamination.h"

#include <atomic>
#include <chrono>
#include <exception>
#include <future>
#include <system_error>
#include <utility>

#include "general/foundation/Thread.h"

namespace frontend {

using deployer::BundleReport;

namespace {

constexpr std::chrono::milliseconds kBetweenLooks{100};

}  // namespace

BundleExamination::BundleExamination(Presenter& presenter, deployer::BundleCheckRequest request)
    : presenter_(presenter), request_(std::move(request)) {}

std::optional<BundleReport> BundleExamination::examine() {
  presenter_.checking(0);
  std::packaged_task<BundleReport()> check([this] { return deployer::checkBundle(request_, progress_); });
  std::future<BundleReport> report = check.get_future();
  std::atomic<bool> isDone = false;
  const auto carryOut = [&] {
    check();
    isDone = true;
    loop_->wakeUp();
  };
  std::optional<foundation::NamedThread> thread;
  try {
    thread.emplace("bundle check", carryOut);
  } catch (const std::system_error&) {
    carryOut();
  }
  const auto timer = loop_->addTimer(kBetweenLooks, true, [this] { showProgress(); });
  // Once more when it is done: a signal that came meanwhile counts.
  loop_->runWhile([&] { return !isDone && !progress_.isStopped(); });
  static_cast<void>(loop_->runUntil(foundation::RunLoop::Clock::now()));
  thread.reset();
  BundleReport found = report.get();
  return progress_.isStopped() ? std::nullopt : std::optional(std::move(found));
}

void BundleExamination::showProgress() {
  const int percent = progress_.percent();
  if (percent > std::exchange(shownPercent_, percent)) {
    presenter_.checking(percent);
  }
}

}  // namespace frontend
