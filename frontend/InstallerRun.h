#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "frontend/BundleExamination.h"
#include "frontend/Presenter.h"
#include "general/foundation/Descriptor.h"

namespace frontend {

/// What the command line asks for.
struct InstallerOptions {
  std::optional<std::string> product;  ///< nothing: the engine chooses
  bool remove = false;                 ///< instead of installing
  int watch = 0;                       ///< process number; 0: start an engine
  bool comparesChecksums = true;       ///< of the bundle, before an install
  bool json = false;                   ///< for programs
  bool verbose = false;                ///< the engine's log on standard error
};

/// One call of the command: checks the bundle and starts the engine, or finds one, shows the run, obeys signals. All of
/// it happens on one thread and its run loop, signals included. One run per object.
class InstallerRun {
 public:
  /// @param startedAs the name by which the program was started; the engine is looked for beside it.
  InstallerRun(InstallerOptions options, std::string startedAs);

  /// The exit code, when the run has been shown to its end.
  [[nodiscard]] int run();

 private:
  [[nodiscard]] RunEnd attachAndFollow();
  [[nodiscard]] RunOutcome checkAndStart();
  /// How it ends when the engine beside this program is not to be started; nothing when it is.
  [[nodiscard]] std::optional<RunOutcome> objectionTo(const std::string& engine);
  [[nodiscard]] std::optional<RunOutcome> refuseUnlessFit(const deployer::BundleReport& report);
  [[nodiscard]] std::optional<deployer::BundleReport> examine(const std::string& bundlePath);
  [[nodiscard]] RunEnd startAndFollow(const std::string& engine);
  [[nodiscard]] RunEnd follow(RunFollower& follower);
  void obey(int signal);
  [[nodiscard]] std::vector<std::string> engineArguments() const;
  /// Where the engine's log goes, besides the system's; notes it in the facts.
  [[nodiscard]] foundation::Descriptor openLog();
  [[nodiscard]] std::unique_ptr<Presenter> makePresenter() const;

  const InstallerOptions options_;
  const std::string startedAs_;
  RunFacts facts_;
  std::unique_ptr<Presenter> presenter_;
  BundleExamination* examination_ = nullptr;  // while it goes on
  RunFollower* follower_ = nullptr;           // while it follows
  bool cancelAsked_ = false;
};

}  // namespace frontend
