#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "general/system/ProcessSelf.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/general/system/ChildRun.h"

namespace {

namespace self = platform::self;
using tests::runInChild;

TEST(ProcessSelf, KnowsItsIdentity) {
  EXPECT_EQ(self::realUserId(), getuid());
  EXPECT_EQ(self::effectiveUserId(), geteuid());
  EXPECT_EQ(self::processIdentifier(), getpid());
}

TEST(ProcessSelf, DescendsFromThoseThatStartedItAndFromNobodyElse) {
  const int self = getpid();
  EXPECT_TRUE(self::descendsFrom(getppid()));
  EXPECT_FALSE(self::descendsFrom(self));
  EXPECT_FALSE(self::descendsFrom(0));
  EXPECT_EQ(runInChild([&] { return self::descendsFrom(self) && self::descendsFrom(getppid()) ? 0 : 1; }), 0);
  EXPECT_EQ(runInChild([&] { return runInChild([&] { return self::descendsFrom(self) ? 0 : 1; }); }), 0);
  int sibling = 0;
  EXPECT_EQ(runInChild([&] {
              sibling = fork();
              if (sibling == 0) {
                while (pause() != 0) {
                }
              }
              const int fromSibling = runInChild([&] { return self::descendsFrom(sibling) ? 1 : 0; });
              kill(sibling, SIGKILL);
              return fromSibling;
            }),
            0);
}

TEST(ProcessSelf, TakesAVariableOutOfItsEnvironmentOnce) {
  ASSERT_EQ(setenv("CORVANE_TAKEN", "", 1), 0);
  EXPECT_TRUE(self::takeVariable("CORVANE_TAKEN"));
  EXPECT_FALSE(self::takeVariable("CORVANE_TAKEN"));
  EXPECT_EQ(std::getenv("CORVANE_TAKEN"), nullptr);
}

TEST(ProcessSelf, RunsFromAFileThatHasAName) { EXPECT_TRUE(self::executableIsInPlace()); }

TEST(ProcessSelf, SetsRealEffectiveAndSavedUserId) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root may take any user id";
  }
  const int result = runInChild([] {
    uid_t real = 0;
    uid_t effective = 0;
    uid_t saved = 0;
    const bool set = self::setUserId(12345);
    getresuid(&real, &effective, &saved);
    const bool all = real == 12345 && effective == 12345 && saved == 12345;
    return set && all && self::realUserId() == 12345 && self::effectiveUserId() == 12345 ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
}

TEST(ProcessSelf, SaysWhenTheSystemRefusesAUserId) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs a user id to give up first";
  }
  EXPECT_EQ(runInChild([] { return self::setUserId(12345) && !self::setUserId(0) ? 0 : 1; }), 0);
}

TEST(PrepareForUnattendedRun, ConnectsClosedStandardDescriptorsToNothing) {
  const int result = runInChild([] {
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    close(STDERR_FILENO);
    self::prepareForUnattendedRun();
    char byte = 0;
    const bool readsNothing = read(STDIN_FILENO, &byte, 1) == 0;
    const bool takesAll = write(STDOUT_FILENO, "x", 1) == 1 && write(STDERR_FILENO, "x", 1) == 1;
    const int next = open("/", O_RDONLY | O_CLOEXEC);
    return readsNothing && takesAll && next > STDERR_FILENO ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
}

TEST(PrepareForUnattendedRun, LeavesTheStandardDescriptorsToChildren) {
  const int result = runInChild([] {
    close(STDOUT_FILENO);
    self::prepareForUnattendedRun();
    return fcntl(STDOUT_FILENO, F_GETFD);
  });
  EXPECT_EQ(result, 0);
}

TEST(PrepareForUnattendedRun, LeavesOpenStandardDescriptorsAlone) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  const int result = runInChild([&ends] {
    dup2(ends[1], STDOUT_FILENO);
    close(STDIN_FILENO);
    self::prepareForUnattendedRun();
    return write(STDOUT_FILENO, "y", 1) == 1 ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
  char byte = 0;
  EXPECT_EQ(read(ends[0], &byte, 1), 1);
  EXPECT_EQ(byte, 'y');
  close(ends[0]);
  close(ends[1]);
}

TEST(PrepareForUnattendedRun, OccupiesTheStandardDescriptorsAlsoWithoutANullDevice) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root may change its root directory";
  }
  const tests::TemporaryDirectory empty;
  const int result = runInChild([&empty] {
    if (chroot(empty.path().c_str()) != 0 || chdir("/") != 0) {
      return 2;
    }
    close(STDERR_FILENO);
    self::prepareForUnattendedRun();
    const bool refused = write(STDERR_FILENO, "x", 1) == -1;
    return refused && open("/", O_RDONLY | O_CLOEXEC) > STDERR_FILENO ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
}

TEST(PrepareForUnattendedRun, MakesAReaderThatWentAwayAnError) {
  const int result = runInChild([] {
    signal(SIGPIPE, SIG_DFL);
    self::prepareForUnattendedRun();
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
      return 2;
    }
    close(ends[0]);
    return write(ends[1], "x", 1) == -1 && errno == EPIPE ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
}

TEST(PrepareForUnattendedRun, MakesAFileBeyondTheSizeLimitAnError) {
  const tests::TemporaryDirectory directory;
  const int result = runInChild([&directory] {
    signal(SIGXFSZ, SIG_DFL);
    self::prepareForUnattendedRun();
    const rlimit nothing{0, 0};
    const int file = open(directory.path("file").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0 || setrlimit(RLIMIT_FSIZE, &nothing) != 0) {
      return 2;
    }
    return write(file, "x", 1) == -1 && errno == EFBIG ? 0 : 1;
  });
  EXPECT_EQ(result, 0);
}

TEST(PrepareForUnattendedRun, MakesTheSystemKeepTheStatusOfChildren) {
  const int result = runInChild([] {
    signal(SIGCHLD, SIG_IGN);
    self::prepareForUnattendedRun();
    return runInChild([] { return 5; });
  });
  EXPECT_EQ(result, 5);
}

}  // namespace
