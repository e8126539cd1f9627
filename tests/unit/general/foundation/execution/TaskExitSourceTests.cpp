#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "general/foundation/execution/RunLoop.h"
#include "general/foundation/execution/Task.h"
#include "general/foundation/execution/TaskExitSource.h"

namespace {

using foundation::RunLoop;
using foundation::Task;
using foundation::TaskExitSource;

RunLoop::Clock::time_point farAway() { return RunLoop::Clock::now() + std::chrono::minutes(1); }

TEST(TaskExitSource, OfATaskThatWasNotLaunchedIsNothingToWaitFor) {
  const Task task("/bin/true", {});
  RunLoop loop;
  const TaskExitSource source(loop, task, [] { FAIL(); });
  EXPECT_FALSE(loop.runUntil(farAway()));
}

TEST(TaskExitSource, RunsItsHandlerInEveryTurnFromTheExitOn) {
  Task task("/bin/true", {});
  task.launch();
  RunLoop loop;
  int turns = 0;
  const TaskExitSource source(loop, task, [&] { ++turns; });
  task.waitUntilExit();
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_TRUE(loop.runUntil(farAway()));
  EXPECT_EQ(turns, 2);
}

TEST(TaskExitSource, MayOutliveItsLoop) {
  Task task("/bin/true", {});
  task.launch();
  auto loop = std::make_unique<RunLoop>();
  const TaskExitSource source(*loop, task);
  loop.reset();
  task.waitUntilExit();
  EXPECT_EQ(task.terminationStatus(), 0);
}

}  // namespace
