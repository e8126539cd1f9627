#include "general/foundation/execution/TaskExitSource.h"

#include <utility>

namespace foundation {

TaskExitSource::TaskExitSource(RunLoop& loop, const Task& task, RunLoop::Handler handler) : loop_(loop) {
  if (task.exitDescriptor() >= 0) {
    source_ = loop_.addDescriptor(task.exitDescriptor(), RunLoop::Interest::Readable, std::move(handler));
  }
}

// Sources count from 1 on; removing none is no harm.
TaskExitSource::~TaskExitSource() { loop_.removeSource(source_); }

}  // namespace foundation
