#pragma once

#include <functional>
#include <string_view>

#include "frontend/RunOutcome.h"
#include "frontend/watch/RunFollower.h"

namespace frontend {

/// Shows a run to whoever reads standard output.
class Presenter : public RunListener {
 public:
  /// Takes text that is complete for the moment, and passes it on at once.
  using Output = std::function<void(std::string_view)>;

  /// The engine was started, or is to be watched; before anything else.
  virtual void begin(const RunFacts& facts) = 0;
  /// The engine has been asked to cancel, or will be once it can be.
  virtual void cancelAsked() = 0;
  /// The terminal may have another width now.
  virtual void widthChanged() {}
  /// The last call.
  virtual void end(const RunOutcome& outcome, const RunFacts& facts) = 0;
};

}  // namespace frontend
