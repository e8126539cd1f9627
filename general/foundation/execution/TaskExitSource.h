#pragma once

#include "general/foundation/execution/RunLoop.h"
#include "general/foundation/execution/Task.h"

namespace foundation {

/// Ends the turns of a run loop once a task's child has exited, as long as it exists. The task must have been launched
/// and outlives this object; all belong to one thread. Where the system cannot announce an exit it does nothing, so
/// keep asking isRunning() now and then.
class TaskExitSource {
 public:
  /// @param handler runs in every turn from the exit on; an empty one only ends the turn.
  TaskExitSource(RunLoop& loop, const Task& task, RunLoop::Handler handler = {});

 private:
  RunLoop::Source source_;
};

}  // namespace foundation
