#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tests/sweep/Machine.h"
#include "tests/sweep/Products.h"

namespace sweep {

/// A run of an engine.
struct Command {
  std::string engine;
  std::vector<std::string> options;
  bool isWatched = false;  ///< with `--ui`, and a watcher that sees its end and lets it go

  [[nodiscard]] std::vector<std::string> arguments() const;
};

/// What somebody starts once a run asks for it.
struct Helper {
  std::string asked;  ///< the run's words
  Command command;
};

/// How a user goes on after a run that failed.
struct Way {
  std::string name;
  std::vector<Command> commands;
  Machine result;  ///< of a run that nothing disturbed
};

/// A run, what it starts from, and how it goes on.
struct Flow {
  std::string name;
  Command command;
  Machine start;
  Machine result;
  std::vector<Way> ways;
  std::optional<Helper> helper;
  /// The user's file may be gone with the product, whose removal was interrupted; the default is then as right.
  bool mayLoseSettings = false;
};

[[nodiscard]] const std::vector<std::string>& flowNames();
/// A flow, with what it should come to as runs in this root show it that nothing disturbs. Throws std::runtime_error
/// when one does not end with 0, and std::invalid_argument when there is no flow of that name.
[[nodiscard]] Flow makeFlow(support::PrivateRoot& root, const std::string& name);

}  // namespace sweep
