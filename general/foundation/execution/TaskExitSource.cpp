#include "general/foundation/execution/TaskExitSource.h"

#include <utility>

namespace foundation {

TaskExitSource::TaskExitSource(RunLoop& loop, const Task& task, RunLoop::Handler handler) {
  if (task.exitDescriptor() >= 0) {
    source_ = loop.addDescriptor(task.exitDescriptor(), RunLoop::Interest::Readable, std::move(handler));
  }
}

}  // namespace foundation
