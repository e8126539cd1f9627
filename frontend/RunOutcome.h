#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "frontend/watch/RunFollower.h"

namespace frontend {

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

}  // namespace frontend
