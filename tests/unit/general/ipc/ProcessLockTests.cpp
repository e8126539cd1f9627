#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "general/ipc/ProcessLock.h"
#include "general/ipc/ServiceFolder.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRunFolder.h"
#include "tests/unit/general/ipc/VendingProcess.h"

namespace {

using ipc::ProcessLock;
using Attempt = ipc::ProcessLock::Attempt;
using tests::CapturedLog;

namespace fs = std::filesystem;

constexpr const char* kName = ".thing";
const std::string kPath = std::string(ipc::kServiceFolder) + "/" + kName;

class ProcessLocks : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const auto reason = tests::enterPrivateRunFolder()) {
      GTEST_SKIP() << *reason;
    }
  }
  /// What a process of its own meets, as its exit code.
  static Attempt attemptOfAnother() {
    return static_cast<Attempt>(
        ipctests::ForkedProcess([] { return static_cast<int>(ProcessLock(kName).tryToLock()); }).wait());
  }
  static int holdUntilKilled(ipctests::Shared& shared) {
    ProcessLock lock(kName);
    if (lock.tryToLock() == Attempt::Locked) {
      shared.calls = getpid();
    }
    while (pause() != 0) {
    }
    return 0;
  }
};

TEST_F(ProcessLocks, KeepOtherProcessesOutAndNotTheirOwn) {
  ProcessLock lock(kName);
  EXPECT_EQ(lock.tryToLock(), Attempt::Locked);
  EXPECT_EQ(lock.tryToLock(), Attempt::Locked);
  EXPECT_EQ(attemptOfAnother(), Attempt::HeldByOther);
}

TEST_F(ProcessLocks, EndWithTheObject) {
  {
    ProcessLock lock(kName);
    ASSERT_EQ(lock.tryToLock(), Attempt::Locked);
  }
  EXPECT_EQ(attemptOfAnother(), Attempt::Locked);
}

TEST_F(ProcessLocks, EndWithTheProcessHoweverItEnds) {
  const ipctests::SharedMemory shared;
  ipctests::ForkedProcess owner([&] { return holdUntilKilled(*shared); });
  ASSERT_TRUE(ipctests::await([&] { return shared->calls != 0; }));
  ProcessLock lock(kName);
  EXPECT_EQ(lock.tryToLock(), Attempt::HeldByOther);
  owner.kill();
  EXPECT_EQ(lock.tryToLock(), Attempt::Locked);
  EXPECT_EQ(lock.holder(), ProcessLock::kGone);
}

TEST_F(ProcessLocks, TellWhoHoldsThemWhateverTheFileSays) {
  ASSERT_TRUE(ipc::makeServiceFolders());
  std::ofstream(kPath) << "1\nheld by somebody else\n";
  const ipctests::SharedMemory shared;
  const ipctests::ForkedProcess owner([&] { return holdUntilKilled(*shared); });
  ASSERT_TRUE(ipctests::await([&] { return shared->calls != 0; }));
  ProcessLock lock(kName);
  EXPECT_EQ(lock.tryToLock(), Attempt::HeldByOther);
  EXPECT_EQ(lock.holder(), shared->calls);
}

TEST_F(ProcessLocks, OfAProcessThatCannotBeSeenAreHeldByNoNumber) {
  ProcessLock lock(kName);
  ASSERT_EQ(lock.tryToLock(), Attempt::Locked);
  // The first process of a container sees none of those outside.
  EXPECT_EQ(ipctests::ForkedProcess([] {
              if (unshare(CLONE_NEWPID) != 0) {
                return 1;
              }
              return ipctests::ForkedProcess([] {
                       ProcessLock theirs(kName);
                       return theirs.tryToLock() == Attempt::HeldByOther && theirs.holder() == ProcessLock::kUnseen ? 0
                                                                                                                    : 2;
                     })
                  .wait();
            }).wait(),
            0);
}

TEST_F(ProcessLocks, AreNotHandedOnToChildren) {
  const ipctests::SharedMemory shared;
  ProcessLock lock(kName);
  ASSERT_EQ(lock.tryToLock(), Attempt::Locked);
  const ipctests::ForkedProcess child([&] {
    shared->calls = 1;
    while (pause() != 0) {
    }
    return 0;
  });
  ASSERT_TRUE(ipctests::await([&] { return shared->calls != 0; }));
  lock = ProcessLock(".another");
  EXPECT_EQ(attemptOfAnother(), Attempt::Locked);
}

TEST_F(ProcessLocks, AreFilesOfRootAlone) {
  ProcessLock lock(kName);
  ASSERT_EQ(lock.tryToLock(), Attempt::Locked);
  struct stat status {};
  ASSERT_EQ(lstat(kPath.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0600U);
  EXPECT_EQ(ipctests::runAs(ipctests::kSomebody, [] { return static_cast<int>(ProcessLock(kName).tryToLock()); }),
            static_cast<int>(Attempt::Failed));
}

TEST_F(ProcessLocks, AreNoLinksToAnythingElse) {
  ASSERT_TRUE(ipc::makeServiceFolders());
  fs::create_symlink("/var/run/elsewhere", kPath);
  const CapturedLog log;
  EXPECT_EQ(ProcessLock(kName).tryToLock(), Attempt::Failed);
  EXPECT_TRUE(log.contains("Error", "Unable to lock " + kPath + ". Too many levels of symbolic links"));
  EXPECT_FALSE(fs::exists("/var/run/elsewhere"));
}

TEST_F(ProcessLocks, CannotBeHadWithoutTheirFolder) {
  std::ofstream(std::string(ipc::kServiceFolder)) << "a file";
  const CapturedLog log;
  EXPECT_EQ(ProcessLock(kName).tryToLock(), Attempt::Failed);
  EXPECT_EQ(log.texts("Error").size(), 1U);
}

}  // namespace
