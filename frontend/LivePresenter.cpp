#include "frontend/LivePresenter.h"

#include <utility>

#include "frontend/PlainPresenter.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/terminal/PrintableText.h"
#include "general/terminal/Terminal.h"

namespace frontend {

using foundation::format;

LivePresenter::LivePresenter(Output terminal, Output trouble, std::function<std::size_t()> columns)
    : terminal_(std::move(terminal)), trouble_(std::move(trouble)), columns_(std::move(columns)) {}

void LivePresenter::checking(int percent) {
  doing_ = kCheckingText;
  percent_ = percent;
  draw();
}

void LivePresenter::checked(const deployer::BundleReport& report) {
  terminal_(terminal::kEraseLine);
  PlainPresenter(terminal_, trouble_).checked(report);
}

void LivePresenter::refused(const deployer::BundleReport& report) {
  terminal_(terminal::kEraseLine);
  PlainPresenter(terminal_, trouble_).refused(report);
}

void LivePresenter::begin(const RunFacts& facts) {
  percent_ = 0;
  doing_ = facts.purpose == Purpose::Watch ? "Connecting" : "Starting";
  draw();
}

void LivePresenter::watching(int /*processIdentifier*/) {}

void LivePresenter::unreachable() { say(kUnreachableText); }

void LivePresenter::orderRefused(const std::string& reason) {
  say(kRefusedText + std::string(" ") + terminal::printable(reason));
}

void LivePresenter::stateChanged(deployer::QVNInstallerState state) {
  if (!deployer::isCompletionState(state)) {
    doing_ = deployer::getNameForState(state);
    draw();
  }
}

void LivePresenter::progressChanged(int percent) {
  percent_ = percent;
  draw();
}

void LivePresenter::cancelAsked() { say(kCancelText); }

void LivePresenter::widthChanged() { draw(); }

void LivePresenter::end(const RunOutcome& outcome, const RunFacts& facts) {
  terminal_(terminal::kEraseLine);
  PlainPresenter(terminal_, trouble_).end(outcome, facts);
}

void LivePresenter::say(std::string_view text) {
  terminal_(std::string(terminal::kEraseLine) + std::string(text) + "\n");
  draw();
}

void LivePresenter::draw() {
  const std::string tail = format(" %3d %%  %@", percent_, doing_);
  terminal_(std::string(terminal::kEraseLine) + terminal::lineWithBar(percent_ / 100.0, tail, columns_()));
}

}  // namespace frontend
