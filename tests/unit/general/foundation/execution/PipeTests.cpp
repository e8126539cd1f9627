#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "general/foundation/execution/Pipe.h"

namespace {

using foundation::makePipe;
using foundation::Pipe;

TEST(Pipe, CarriesBytesFromOneEndToTheOther) {
  const auto pipe = makePipe();
  ASSERT_TRUE(pipe);
  ASSERT_EQ(write(pipe->writeEnd.number(), "x", 1), 1);
  char byte = 0;
  EXPECT_EQ(read(pipe->readEnd.number(), &byte, 1), 1);
  EXPECT_EQ(byte, 'x');
}

TEST(Pipe, DoesNotOutliveAnExec) {
  const auto pipe = makePipe();
  ASSERT_TRUE(pipe);
  EXPECT_EQ(fcntl(pipe->readEnd.number(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_EQ(fcntl(pipe->writeEnd.number(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST(Pipe, KeepsAwayFromTheStandardDescriptorsThoughTheyAreFree) {
  const pid_t child = fork();
  if (child == 0) {
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    const auto pipe = makePipe();
    const bool isAway = pipe && pipe->readEnd.number() > STDERR_FILENO && pipe->writeEnd.number() > STDERR_FILENO;
    const bool isFree = fcntl(STDIN_FILENO, F_GETFD) == -1 && fcntl(STDOUT_FILENO, F_GETFD) == -1;
    _exit(isAway && isFree ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(Pipe, WithoutWaitingReturnsAtOnceWhenThereIsNothingToRead) {
  const auto pipe = makePipe();
  ASSERT_TRUE(pipe);
  ASSERT_TRUE(setNonBlocking(pipe->readEnd));
  char byte = 0;
  EXPECT_EQ(read(pipe->readEnd.number(), &byte, 1), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(fcntl(pipe->writeEnd.number(), F_GETFL) & O_NONBLOCK, 0) << "the other end still waits";
}

TEST(Pipe, ThatIsNotOpenCannotBeMadeNonBlocking) { EXPECT_FALSE(foundation::setNonBlocking(foundation::Descriptor())); }

}  // namespace
