#pragma once

#include <optional>

#include "frontend/Presenter.h"

namespace frontend {

/// Line after line, for files, pipes and terminals that know nothing else: every state, and progress in steps of ten.
/// What is wrong with a bundle goes where trouble belongs.
class PlainPresenter : public Presenter {
 public:
  /// @param output where everything else goes, and the outcome of a run that succeeded or goes on by itself.
  /// @param trouble where the outcome of a run goes that did not succeed.
  PlainPresenter(Output output, Output trouble) : output_(std::move(output)), trouble_(std::move(trouble)) {}

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
  void end(const RunOutcome& outcome, const RunFacts& facts) override;

 protected:
  /// One line, at once.
  void print(std::string_view line);

 private:
  Output output_;
  Output trouble_;
  int checkedTens_ = -1;                              // tenths of the check that were printed
  std::optional<deployer::QVNInstallerState> state_;  // the last one told of
  int shownTens_ = 0;                                 // tenths of the run that were printed; never goes down
};

}  // namespace frontend
