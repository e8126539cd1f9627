#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>

#include "general/foundation/execution/ChildProcess.h"

namespace {

using foundation::ChildPlan;
using foundation::ChildStart;
using foundation::startChild;

TEST(ChildProcess, RunsItsProgramWithItsArguments) {
  ChildPlan plan;
  plan.program = "/bin/sh";
  plan.arguments = {"-c", "exit $1", "name", "7"};
  const ChildStart start = startChild(plan);
  ASSERT_EQ(start.failure, ChildStart::Failure::None);
  int status = 0;
  ASSERT_EQ(waitpid(start.processIdentifier, &status, 0), start.processIdentifier);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST(ChildProcess, TellsAMissingProgramAndLeavesNoChild) {
  ChildPlan plan;
  plan.program = "/missing/program";
  const ChildStart start = startChild(plan);
  EXPECT_EQ(start.failure, ChildStart::Failure::Program);
  EXPECT_EQ(start.errnoValue, ENOENT);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "it was not reaped";
  EXPECT_EQ(errno, ECHILD);
}

TEST(ChildProcess, TellsAMissingWorkingDirectoryFromAMissingProgram) {
  ChildPlan plan;
  plan.program = "/bin/true";
  plan.workingDirectory = "/missing/folder";
  const ChildStart start = startChild(plan);
  EXPECT_EQ(start.failure, ChildStart::Failure::WorkingDirectory);
  EXPECT_EQ(start.errnoValue, ENOENT);
}

}  // namespace
