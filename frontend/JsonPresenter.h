#pragma once

#include "frontend/Presenter.h"

namespace frontend {

/// One JSON object per event, each on a line of its own and passed on at once, for programs that read along. The
/// members are listed in docs/front-end.md; scripts rely on them. What is not known is null.
class JsonPresenter : public Presenter {
 public:
  /// @param output where all of it goes, the outcome too.
  explicit JsonPresenter(Output output) : output_(std::move(output)) {}

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

 private:
  Output output_;
};

}  // namespace frontend
