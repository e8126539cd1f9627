#include "frontend/InstallerRun.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <utility>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/EngineOptions.h"
#include "frontend/EngineLogFile.h"
#include "frontend/JsonPresenter.h"
#include "frontend/LivePresenter.h"
#include "frontend/PlainPresenter.h"
#include "frontend/watch/EngineProcesses.h"
#include "general/foundation/execution/SignalSource.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/system/ProcessSelf.h"
#include "general/terminal/Terminal.h"

namespace frontend {

using foundation::Descriptor;

namespace {

constexpr std::size_t kMostLogBytes = std::size_t{16} * 1024 * 1024;

Presenter::Output outputTo(std::FILE* stream) {
  return [stream](std::string_view text) { terminal::writeAtOnce(stream, text); };
}

}  // namespace

InstallerRun::InstallerRun(InstallerOptions options, std::string startedAs)
    : options_(std::move(options)), startedAs_(std::move(startedAs)), presenter_(makePresenter()) {
  facts_.purpose = options_.watch > 0 ? Purpose::Watch : options_.remove ? Purpose::Remove : Purpose::Install;
  facts_.process = options_.watch;
  facts_.logIsShown = options_.verbose;
  facts_.isRoot = platform::self::effectiveUserId() == 0;
}

int InstallerRun::run() {
  // From before the engine is started: from then on no signal may end this program unheard.
  const foundation::SignalSource signals(*foundation::RunLoop::current(), {SIGINT, SIGTERM, SIGHUP, SIGWINCH},
                                         [this](int signal) { obey(signal); });
  const RunEnd end = options_.watch > 0 ? attachAndFollow() : startAndFollow();
  const RunOutcome outcome = outcomeOf(end, facts_);
  presenter_->end(outcome, facts_);
  return outcome.exitCode;
}

RunEnd InstallerRun::attachAndFollow() {
  presenter_->begin(facts_);
  RunFollower follower(*presenter_, options_.watch);
  return follow(follower);
}

RunEnd InstallerRun::startAndFollow() {
  const auto engine = engineBeside(startedAs_);
  if (!engine) {
    return {RunEnd::Kind::Unwatched,
            {},
            foundation::format("There is no engine (%@) beside this program.", deployer::kQVNInstallationDeployerName)};
  }
  try {
    foundation::Task task = startEngine(*engine, engineArguments(), openLog());
    facts_.process = task.processIdentifier();
    presenter_->begin(facts_);
    RunFollower follower(*presenter_, task);
    return follow(follower);
  } catch (const foundation::TaskLaunchException& exception) {
    return {RunEnd::Kind::Unwatched, {}, foundation::format("The engine cannot be started: %s.", exception.what())};
  }
}

RunEnd InstallerRun::follow(RunFollower& follower) {
  follower_ = &follower;
  RunEnd end = follower.follow();
  follower_ = nullptr;
  return end;
}

/// Runs in turns of the run loop, and only the follower turns it.
void InstallerRun::obey(int signal) {
  if (signal == SIGWINCH) {
    presenter_->widthChanged();
  } else if (signal == SIGINT && !std::exchange(cancelAsked_, true)) {
    presenter_->cancelAsked();
    follower_->cancel();
  } else {
    follower_->detach();
  }
}

std::vector<std::string> InstallerRun::engineArguments() const {
  std::vector<std::string> arguments{deployer::kUserInterfaceOption,
                                     options_.remove ? deployer::kRemoveOption : deployer::kInstallOption};
  if (options_.product) {
    arguments.insert(arguments.end(), {deployer::kProductNameOption, *options_.product});
  }
  return arguments;
}

Descriptor InstallerRun::openLog() {
  if (options_.verbose) {
    return Descriptor(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
  }
  if (Descriptor file = openLogFile(std::string(kEngineLogFile), kMostLogBytes); file.isOpen()) {
    facts_.logFile = kEngineLogFile;
    return file;
  }
  return Descriptor(open("/dev/null", O_WRONLY | O_CLOEXEC));
}

std::unique_ptr<Presenter> InstallerRun::makePresenter() const {
  if (options_.json) {
    return std::make_unique<JsonPresenter>(outputTo(stdout));
  }
  // Log lines would run into the bar.
  if (!options_.verbose && terminal::canRedraw(STDOUT_FILENO)) {
    return std::make_unique<LivePresenter>(outputTo(stdout), outputTo(stderr),
                                           [] { return terminal::columnsOf(STDOUT_FILENO); });
  }
  return std::make_unique<PlainPresenter>(outputTo(stdout), outputTo(stderr));
}

}  // namespace frontend
