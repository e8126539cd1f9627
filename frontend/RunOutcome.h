#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "frontend/watch/RunFollower.h"

namespace frontend {

// Exit codes of Installer beside the final states of runs (0 to 10, and 21).
inline constexpr int kExitUsage = 64;      ///< called wrongly
inline constexpr int kExitUnwatched = 69;  ///< no engine could be started or watched
inline constexpr int kExitLost = 70;       ///< the engine ended or went away without a final state
inline constexpr int kExitDetached = 75;   ///< this program left before the engine's end

enum class Purpose { Install, Remove, Watch };

/// What is known of a run before it ends.
struct RunFacts {
  Purpose purpose = Purpose::Install;
  int process = 0;
  std::optional<std::string> logFile;  ///< nothing: no file of ours has it
  bool logIsShown = false;             ///< on standard error
  bool isRoot = true;                  ///< who started the engine
};

/// How it went, for people and programs.
struct RunOutcome {
  std::string_view kind;  ///< "finished", "refused", "lost", "unwatched", "detached"
  std::optional<std::uint64_t> state;
  std::string text;  ///< a sentence or two
  int exitCode = 0;
};

[[nodiscard]] RunOutcome outcomeOf(const RunEnd& end, const RunFacts& facts);
/// The final state of a run in words that fit what the run was for.
[[nodiscard]] std::string finalStateText(deployer::QVNInstallerState state, Purpose purpose);
/// Where to read what the engine did, a sentence.
[[nodiscard]] std::string logText(const RunFacts& facts);

/// Said at the first Ctrl-C.
inline constexpr std::string_view kCancelText =
    "Cancelling: the engine finishes the step that is running and stops then. What has been done by then stays done.\n"
    "Press Ctrl-C again to leave the engine alone and return at once.";

/// Said when the engine runs but cannot be reached.
inline constexpr std::string_view kUnreachableText =
    "The engine runs but cannot be reached: how far it is cannot be shown, and it may wait for ever to be seen. Its "
    "log\n"
    "says why, and whether it has succeeded or failed; then it may be ended. Press Ctrl-C twice to leave it alone.";

}  // namespace frontend
