#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "InstallationDeployer/checks/BundleCheck.h"
#include "frontend/watch/RunFollower.h"

namespace frontend {

enum class Purpose { Install, Remove, Watch };

/// What is known of a run before it ends.
struct RunFacts {
  Purpose purpose = Purpose::Install;
  int process = 0;
  std::optional<std::string> logFile;  ///< nothing: no file of ours has it
  bool logIsShown = false;             ///< on standard error
  bool hasLog = true;                  ///< an engine was started, or was to be
  bool isRoot = true;                  ///< who started the engine
};

/// How it went, for people and programs.
struct RunOutcome {
  std::string_view kind;  ///< "finished", "refused", "lost", "unwatched", "detached"; see docs/front-end.md
  std::optional<std::uint64_t> state;
  std::string text;  ///< a sentence or two
  int exitCode = 0;
};

[[nodiscard]] RunOutcome outcomeOf(const RunEnd& end, const RunFacts& facts);
/// Of a run that was not begun, because of what was found wrong with the bundle or the receipt.
[[nodiscard]] RunOutcome outcomeOf(const deployer::BundleReport& unfit, Purpose purpose);
/// Of a run that was not begun, because the check itself could not be carried out.
[[nodiscard]] RunOutcome outcomeOfFailedCheck(std::string_view reason);
/// Of a run that was not begun, because somebody left before.
[[nodiscard]] RunOutcome outcomeOfLeaving();
/// The final state of a run in words that fit what the run was for.
[[nodiscard]] std::string finalStateText(deployer::QVNInstallerState state, Purpose purpose);
/// Where to read what the engine did, a sentence; empty when there was none.
[[nodiscard]] std::string logText(const RunFacts& facts);

}  // namespace frontend
