#include "frontend/InstallerRun.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <utility>

#include "InstallationDeployer/BundleLayout.h"
#include "InstallationDeployer/EngineOptions.h"
#include "frontend/EngineLogFile.h"
#include "frontend/JsonPresenter.h"
#include "frontend/LivePresenter.h"
#include "frontend/PlainPresenter.h"
#include "frontend/watch/EngineProcesses.h"
#include "general/foundation/Paths.h"
#include "general/foundation/execution/SignalSource.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/logging/SystemLog.h"
#include "general/system/ProcessSelf.h"
#include "general/terminal/Terminal.h"

namespace frontend {

using foundation::Descriptor;
namespace paths = foundation::paths;

namespace {

// From the engine, Contents/MacOS/InstallationDeployer, up to the bundle.
constexpr std::string_view kFromEngineToBundle = "../../../";

/// What the check logs of a bundle on its way, the report says better. Everybody else logs again at its end.
class QuietLog {
 public:
  QuietLog() { logging::setLeastUrgentLevel(logging::Level::Emergency); }
  ~QuietLog() { logging::setLeastUrgentLevel(logging::Level::Debug); }
  QuietLog(const QuietLog&) = delete;
  QuietLog& operator=(const QuietLog&) = delete;
};

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
  const RunOutcome outcome = options_.watch > 0 ? outcomeOf(attachAndFollow(), facts_) : checkAndStart();
  presenter_->end(outcome, facts_);
  return outcome.exitCode;
}

RunEnd InstallerRun::attachAndFollow() {
  presenter_->begin(facts_);
  RunFollower follower(*presenter_, options_.watch);
  return follow(follower);
}

RunOutcome InstallerRun::checkAndStart() {
  const auto engine = engineBeside(startedAs_);
  if (!engine) {
    return outcomeOf(
        {RunEnd::Kind::Unwatched,
         {},
         foundation::format("There is no engine (%@) beside this program.", deployer::kQVNInstallationDeployerName)},
        facts_);
  }
  if (auto objection = objectionTo(*engine)) {
    facts_.hasLog = false;
    return *std::move(objection);
  }
  return outcomeOf(startAndFollow(*engine), facts_);
}

std::optional<RunOutcome> InstallerRun::objectionTo(const std::string& engine) {
  if (!facts_.isRoot) {
    // It refuses at once, and who is not root may not even be able to read the bundle.
    return std::nullopt;
  }
  const QuietLog quiet;
  const std::string bundlePath = paths::standardize(paths::append(engine, kFromEngineToBundle));
  try {
    if (options_.remove) {
      return refuseUnlessFit(deployer::checkReceipt(bundlePath));
    }
    const auto report = examine(bundlePath);
    if (!report) {
      return outcomeOfLeaving();
    }
    auto refusal = refuseUnlessFit(*report);
    if (!refusal) {
      presenter_->checked(*report);
    }
    return refusal;
  } catch (const std::exception& exception) {
    return outcomeOfFailedCheck(exception.what());
  }
}

std::optional<RunOutcome> InstallerRun::refuseUnlessFit(const deployer::BundleReport& report) {
  if (report.isFit()) {
    return std::nullopt;
  }
  presenter_->refused(report);
  return outcomeOf(report, facts_.purpose);
}

std::optional<deployer::BundleReport> InstallerRun::examine(const std::string& bundlePath) {
  BundleExamination examination(*presenter_, {bundlePath, options_.product, options_.comparesChecksums});
  examination_ = &examination;
  auto report = examination.examine();
  examination_ = nullptr;
  return report;
}

RunEnd InstallerRun::startAndFollow(const std::string& engine) {
  try {
    foundation::Task task = startEngine(engine, engineArguments(), openLog(), facts_.logFile);
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

/// Runs in turns of the run loop, and only the examination and the follower turn it.
void InstallerRun::obey(int signal) {
  if (signal == SIGWINCH) {
    presenter_->widthChanged();
  } else if (examination_ != nullptr) {
    examination_->leave();
  } else if (signal == SIGINT && !std::exchange(cancelAsked_, true)) {
    // Told first, said then: who reads it may count on it.
    follower_->cancel();
    presenter_->cancelAsked();
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
  if (Descriptor file = openLogFile(std::string(kEngineLogFile), deployer::kMostLogBytes); file.isOpen()) {
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
