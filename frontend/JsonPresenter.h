#pragma once

#include "frontend/Presenter.h"

namespace frontend {

/// One JSON object per event, each on a line of its own.
class JsonPresenter : public Presenter {
 public:
  explicit JsonPresenter(Output output) : output_(std::move(output)) {}

  void begin(const RunFacts& facts) override;
  void watching(int processIdentifier) override;
  void unreachable() override;
  void stateChanged(deployer::QVNInstallerState state) override;
  void progressChanged(int percent) override;
  void cancelAsked() override;
  void end(const RunOutcome& outcome, const RunFacts& facts) override;

 private:
  Output output_;
};

}  // namespace frontend
