#include "frontend/RunOutcome.h"

#include <algorithm>

#include "InstallationDeployer/EngineNames.h"
#include "frontend/ExitCodes.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/terminal/PrintableText.h"

namespace frontend {

using deployer::QVNInstallerState;
using foundation::format;

namespace {

std::string refusal(const RunFacts& facts, int exitCode) {
  const std::string text = format("The engine ended with exit code %d before it could be watched. ", exitCode);
  return text + (facts.isRoot ? "Its log says why."
                              : "It has to run as root: start this program as root, for example with sudo.");
}

std::string farewell(int process) {
  return format(
      "The engine (process %d) goes on by itself. At its end it waits until somebody has seen how the run ended: "
      "`Installer --watch %d` shows it and lets the engine leave.",
      process, process);
}

constexpr std::string_view kNothingChanged = "Nothing was started, and nothing was changed.";

bool holds(const deployer::BundleReport& report, deployer::BundleProblem::Kind kind) {
  return std::ranges::any_of(report.problems, [=](const auto& problem) { return problem.kind == kind; });
}

/// What to do about a bundle.
std::string remedyFor(const deployer::BundleReport& report) {
  using Kind = deployer::BundleProblem::Kind;
  std::string remedy = "Fetch the bundle again";
  if (holds(report, Kind::Unreadable)) {
    remedy += ", or put right what keeps it from being read";
  }
  if (holds(report, Kind::Malformed)) {
    remedy += "; if it stays like this, ask whoever made it";
  }
  return remedy + ".";
}

/// How much space has to be made.
std::string missingSpace(const deployer::BundleReport& report) {
  const deployer::BundleProblem& problem = report.problems.front();
  const std::uint64_t bytes = std::stoull(problem.expected) - std::stoull(problem.found);
  return format("Free %llu bytes (%@) more on the system volume.", bytes, terminal::sizeText(bytes));
}

std::string removalText(QVNInstallerState state) {
  if (state == deployer::QVNInstallerStateSuccess) {
    return "The product was removed.";
  }
  return state == deployer::QVNInstallerStateCancelled ? "The removal was cancelled." : "The removal failed.";
}

}  // namespace

RunOutcome outcomeOf(const RunEnd& end, const RunFacts& facts) {
  const int state = deployer::exitCodeForState(end.state);
  switch (end.kind) {
    case RunEnd::Kind::Finished:
      return {"finished", end.state, finalStateText(end.state, facts.purpose), state};
    case RunEnd::Kind::Refused:
      return {"refused", end.state, refusal(facts, state), state};
    case RunEnd::Kind::Lost:
      return {"lost", std::nullopt, end.reason + " Run the same command again: it begins anew.", kExitLost};
    case RunEnd::Kind::Unwatched:
      return {"unwatched", std::nullopt, end.reason, kExitUnwatched};
    case RunEnd::Kind::Detached:
      break;
  }
  return {"detached", std::nullopt, farewell(facts.process), kExitDetached};
}

RunOutcome outcomeOf(const deployer::BundleReport& unfit, Purpose purpose) {
  if (purpose == Purpose::Remove) {
    return {"refused", std::nullopt,
            format("The receipt cannot be read. %@ Copy Contents/Install/Manifests over it from the bundle that "
                   "installed the product, and remove again.",
                   kNothingChanged),
            kExitUnfit};
  }
  if (unfit.lacksOnlySpace()) {
    const QVNInstallerState state = deployer::QVNInstallerStateInsufficientDiskSpace;
    return {"refused", state, format("%@ %@ %@", finalStateText(state, purpose), missingSpace(unfit), kNothingChanged),
            deployer::exitCodeForState(state)};
  }
  return {"refused", std::nullopt,
          format("The bundle cannot be installed as it is (problems: %llu). %@ %@", unfit.problemCount, kNothingChanged,
                 remedyFor(unfit)),
          kExitUnfit};
}

RunOutcome outcomeOfFailedCheck(std::string_view reason) {
  return {"refused", std::nullopt, format("The bundle cannot be checked: %@. %@", reason, kNothingChanged), kExitUnfit};
}

RunOutcome outcomeOfLeaving() { return {"detached", std::nullopt, std::string(kNothingChanged), kExitDetached}; }

std::string finalStateText(QVNInstallerState state, Purpose purpose) {
  if (purpose == Purpose::Remove) {
    return removalText(state);
  }
  // For a run that somebody else started, this program does not know what it was for.
  const bool isCancelled = state == deployer::QVNInstallerStateCancelled;
  if (purpose == Purpose::Watch && isCancelled) {
    return "The run was cancelled.";
  }
  if (purpose == Purpose::Watch && state == deployer::QVNInstallerStateSuccess) {
    return "The run was successful.";
  }
  if (purpose == Purpose::Watch && state == deployer::QVNInstallerStateFailed) {
    return "The run failed.";
  }
  return isCancelled ? "The installation was cancelled." : deployer::getNameForState(state);
}

std::string logText(const RunFacts& facts) {
  if (!facts.hasLog) {
    return {};
  }
  const std::string systemLog = format("the system log, under \"%s\"", deployer::kEngineLogSender);
  if (facts.logIsShown) {
    return format("Log: shown above, and in %@.", systemLog);
  }
  return facts.logFile ? format("Log: %@, and %@.", *facts.logFile, systemLog) : format("Log: %@.", systemLog);
}

}  // namespace frontend
