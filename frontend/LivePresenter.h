#pragma once

#include <functional>
#include <optional>
#include <string>

#include "frontend/Presenter.h"

namespace frontend {

/// One line with a bar and the state, drawn in place on a terminal, and whole lines for what shall stay. Nothing but
/// that line is ever erased, and it is at the end.
class LivePresenter : public Presenter {
 public:
  /// @param terminal can clear a line; see terminal::canRedraw().
  /// @param trouble where the outcome of a run goes that did not succeed.
  /// @param columns asks for the width of the terminal, in characters; called whenever the line is drawn.
  LivePresenter(Output terminal, Output trouble, std::function<std::size_t()> columns);

  void checking(int percent) override;
  void checked(const deployer::BundleReport& report) override;
  void refused(const deployer::BundleReport& report) override;
  void begin(const RunFacts& facts) override;
  void watching(int processIdentifier) override;
  void unreachable() override;
  void orderRefused(const std::string& reason) override;
  void stateChanged(deployer::QVNInstallerState state) override;
  void progressChanged(int percent) override;
  void cancelAsked() override;
  void widthChanged() override;
  void end(const RunOutcome& outcome, const RunFacts& facts) override;

 private:
  /// Text that stays, above the bar.
  void say(std::string_view text);
  /// The line, over what stands there.
  void draw();

  Output terminal_;
  Output trouble_;
  std::function<std::size_t()> columns_;
  std::string doing_;  // the state in words
  int percent_ = 0;
};

}  // namespace frontend
