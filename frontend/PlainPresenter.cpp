#include "frontend/PlainPresenter.h"

#include "frontend/ExitCodes.h"
#include "frontend/ProblemText.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/terminal/PrintableText.h"

namespace frontend {

using foundation::format;

void PlainPresenter::checking(int percent) {
  if (percent / 10 > checkedTens_) {
    checkedTens_ = percent / 10;
    print(checkedTens_ > 0 ? format("%@, %d %%", kCheckingText, percent) : std::string(kCheckingText));
  }
}

void PlainPresenter::checked(const deployer::BundleReport& report) {
  for (const std::string& warning : report.warnings) {
    trouble_("Warning: " + terminal::printable(warning) + "\n");
  }
}

void PlainPresenter::refused(const deployer::BundleReport& report) { trouble_(problemsText(report)); }

void PlainPresenter::begin(const RunFacts& facts) {
  print(format(facts.purpose == Purpose::Watch ? "Watching process %d" : "Engine started: process %d", facts.process));
}

void PlainPresenter::watching(int /*processIdentifier*/) {}

void PlainPresenter::unreachable() { print(kUnreachableText); }

void PlainPresenter::orderRefused(const std::string& reason) {
  print(kRefusedText + std::string(" ") + terminal::printable(reason));
}

void PlainPresenter::stateChanged(deployer::QVNInstallerState state) {
  state_ = state;
  // The outcome says the rest.
  if (!deployer::isCompletionState(state)) {
    print(deployer::getNameForState(state));
  }
}

void PlainPresenter::progressChanged(int percent) {
  if (percent / 10 > shownTens_ && state_) {
    shownTens_ = percent / 10;
    print(format("%s, %d %%", deployer::getNameForState(*state_), percent));
  }
}

void PlainPresenter::cancelAsked() { print(kCancelText); }

void PlainPresenter::end(const RunOutcome& outcome, const RunFacts& facts) {
  const bool isFine = outcome.exitCode == 0 || outcome.exitCode == kExitDetached;
  const std::string log = logText(facts);
  (isFine ? output_ : trouble_)(format("%@ Exit code %d.\n%@", terminal::printable(outcome.text), outcome.exitCode,
                                       log.empty() ? log : terminal::printable(log) + "\n"));
}

void PlainPresenter::print(std::string_view line) { output_(std::string(line) + "\n"); }

}  // namespace frontend
