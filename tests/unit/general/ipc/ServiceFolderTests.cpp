#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "general/ipc/ServiceFolder.h"
#include "general/ipc/ServiceSocket.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRunFolder.h"
#include "tests/unit/general/ipc/VendingProcess.h"

namespace {

using foundation::Descriptor;
using ipc::ServiceFolderLock;
using ipc::SocketState;
using tests::CapturedLog;

namespace fs = std::filesystem;

const std::string kFolder(ipc::kServiceFolder);
const std::string kPath = kFolder + "/service";

struct stat statusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status;
}

mode_t modeOf(const std::string& path) { return statusOf(path).st_mode & 07777U; }

void makeDeadSocket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(bind(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
}

class ServiceFolder : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const auto reason = tests::enterPrivateRunFolder()) {
      GTEST_SKIP() << *reason;
    }
  }
};

TEST(ServiceNames, AreSingleVisibleComponentsThatFitIntoAnAddress) {
  EXPECT_EQ(ipc::socketPathOfService("com.corvane.installer.12"),
            "/var/run/com.corvane.installer/com.corvane.installer.12");
  for (const std::string name : {"", ".", "..", ".lock", "a/b", "../elsewhere", "/absolute"}) {
    EXPECT_EQ(ipc::socketPathOfService(name), std::nullopt) << name;
  }
  EXPECT_EQ(ipc::socketPathOfService(std::string_view("a\0b", 3)), std::nullopt);
  const std::size_t longest = sizeof sockaddr_un::sun_path - 1 - kFolder.size() - 1;
  EXPECT_TRUE(ipc::socketPathOfService(std::string(longest, 'x')));
  EXPECT_FALSE(ipc::socketPathOfService(std::string(longest + 1, 'x')));
}

TEST_F(ServiceFolder, IsMadeForRootAloneToWriteAndForAllToEnterWhateverTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{077}}) {
    const mode_t before = umask(mask);
    EXPECT_TRUE(ServiceFolderLock::acquire());
    umask(before);
    for (const std::string& folder : {kFolder, std::string(ipc::kObserverFolder)}) {
      EXPECT_EQ(modeOf(folder), 0755U);
      EXPECT_EQ(statusOf(folder).st_uid, 0U);
    }
    EXPECT_EQ(modeOf(kFolder + "/.lock"), 0600U);
    fs::remove_all(kFolder);
  }
}

TEST_F(ServiceFolder, OfRootThatOthersCannotEnterIsOpenedToThem) {
  fs::create_directory(kFolder);
  ASSERT_EQ(chmod(kFolder.c_str(), 0700), 0);
  EXPECT_TRUE(ServiceFolderLock::acquire());
  EXPECT_EQ(modeOf(kFolder), 0755U);
}

TEST_F(ServiceFolder, InWhichOthersCanWriteIsNotUsed) {
  const CapturedLog log;
  for (const mode_t mode : {mode_t{0775}, mode_t{0757}, mode_t{01777}}) {
    fs::create_directory(kFolder);
    ASSERT_EQ(chmod(kFolder.c_str(), mode), 0);
    EXPECT_FALSE(ServiceFolderLock::acquire());
    EXPECT_EQ(modeOf(kFolder), mode);
    fs::remove_all(kFolder);
  }
  EXPECT_EQ(log.texts("Error").size(), 3U);
}

TEST_F(ServiceFolder, OfSomebodyElseIsNotUsed) {
  fs::create_directory(kFolder);
  ASSERT_EQ(chown(kFolder.c_str(), ipctests::kSomebody, 0), 0);
  EXPECT_FALSE(ServiceFolderLock::acquire());
  EXPECT_EQ(statusOf(kFolder).st_uid, ipctests::kSomebody);
}

TEST_F(ServiceFolder, ThatIsALinkOrAFileIsNotUsed) {
  fs::create_directory("/var/run/elsewhere");
  fs::create_symlink("/var/run/elsewhere", kFolder);
  EXPECT_FALSE(ServiceFolderLock::acquire());
  EXPECT_TRUE(fs::is_empty("/var/run/elsewhere"));
  fs::remove(kFolder);
  std::ofstream(kFolder) << "content";
  EXPECT_FALSE(ServiceFolderLock::acquire());
}

TEST_F(ServiceFolder, HasALockThatIsNoLinkToAnythingElse) {
  ASSERT_TRUE(ServiceFolderLock::acquire());
  fs::remove(kFolder + "/.lock");
  fs::create_symlink("/var/run/elsewhere", kFolder + "/.lock");
  EXPECT_FALSE(ServiceFolderLock::acquire());
  EXPECT_FALSE(fs::exists("/var/run/elsewhere"));
}

TEST_F(ServiceFolder, IsLockedAgainstOtherProcessesAsLongAsTheLockLives) {
  const ipctests::SharedMemory shared;
  ipctests::ForkedProcess owner([&] {
    const auto lock = ServiceFolderLock::acquire();
    ++shared->inside;
    while (pause() != 0) {
    }
    return 0;
  });
  ASSERT_TRUE(ipctests::await([&] { return shared->inside == 1; }));
  const Descriptor file(open((kFolder + "/.lock").c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_NE(flock(file.number(), LOCK_EX | LOCK_NB), 0);
  owner.kill();
  EXPECT_EQ(flock(file.number(), LOCK_EX | LOCK_NB), 0);
}

TEST_F(ServiceFolder, IsNotWaitedForForEverWhenSomebodyKeepsItLocked) {
  const auto held = ServiceFolderLock::acquire();
  ASSERT_TRUE(held);
  const CapturedLog log;
  EXPECT_FALSE(ServiceFolderLock::acquire(std::chrono::milliseconds(20)));
  EXPECT_EQ(log.texts("Error"),
            std::vector<std::string>{"Unable to lock " + kFolder + "/.lock. Another process does not let go of it."});
}

TEST_F(ServiceFolder, ShowsASocketOnlyWhenItListensAndHasItsMode) {
  const mode_t before = umask(077);
  const auto lock = ServiceFolderLock::acquire();
  ASSERT_TRUE(lock);
  const Descriptor listener = ipc::listenAt(kPath, ipc::kModeForEverybody, *lock);
  umask(before);
  ASSERT_TRUE(listener.isOpen());
  EXPECT_EQ(modeOf(kPath), 0666U);
  EXPECT_EQ(ipc::stateOfSocket(kPath), SocketState::Alive);
  EXPECT_TRUE(ipc::connectTo(kPath, false).isOpen());
  const auto entries = std::distance(fs::directory_iterator(kFolder), fs::directory_iterator());
  EXPECT_EQ(entries, 3) << "the socket, the lock, the observers, and nothing unfinished";
}

TEST_F(ServiceFolder, TellsTheLivingFromTheStale) {
  const auto lock = ServiceFolderLock::acquire();
  ASSERT_TRUE(lock);
  EXPECT_EQ(ipc::stateOfSocket(kPath), SocketState::Absent);
  Descriptor listener = ipc::listenAt(kPath, ipc::kModeForRoot, *lock);
  EXPECT_EQ(ipc::stateOfSocket(kPath), SocketState::Alive);
  listener.reset();
  EXPECT_EQ(ipc::stateOfSocket(kPath), SocketState::Stale);
}

TEST_F(ServiceFolder, IsSweptOfStaleSocketsAlone) {
  const auto lock = ServiceFolderLock::acquire();
  ASSERT_TRUE(lock);
  const Descriptor living = ipc::listenAt(kFolder + "/living", ipc::kModeForRoot, *lock);
  makeDeadSocket(kFolder + "/dead");
  makeDeadSocket(kFolder + "/.unfinished");
  makeDeadSocket("/var/run/elsewhere");
  fs::create_symlink("/var/run/elsewhere", kFolder + "/link");
  std::ofstream(kFolder + "/file") << "content";
  ipc::sweepStaleSockets(kFolder, *lock);
  EXPECT_FALSE(fs::exists(fs::symlink_status(kFolder + "/dead")));
  EXPECT_FALSE(fs::exists(fs::symlink_status(kFolder + "/.unfinished")));
  EXPECT_TRUE(fs::exists(kFolder + "/living"));
  EXPECT_TRUE(fs::exists(fs::symlink_status(kFolder + "/link")));
  EXPECT_TRUE(fs::exists("/var/run/elsewhere"));
  EXPECT_TRUE(fs::exists(kFolder + "/file"));
}

TEST_F(ServiceFolder, LosesANameWithItsOwnerUnlessSomebodyElseHasIt) {
  auto lock = ServiceFolderLock::acquire();
  ASSERT_TRUE(lock);
  const Descriptor first = ipc::listenAt(kPath, ipc::kModeForRoot, *lock);
  {
    const ipc::SocketName name(kPath);
    lock.reset();
  }
  EXPECT_FALSE(fs::exists(kPath));
  lock = ServiceFolderLock::acquire();
  const Descriptor second = ipc::listenAt(kPath, ipc::kModeForRoot, *lock);
  Descriptor third;
  {
    const ipc::SocketName name(kPath);
    third = ipc::listenAt(kPath, ipc::kModeForRoot, *lock);
    lock.reset();
  }
  EXPECT_TRUE(fs::exists(kPath));
}

TEST_F(ServiceFolder, IsNothingThatAnotherUserCanUse) {
  ASSERT_TRUE(ServiceFolderLock::acquire());
  const auto asSomebody = [] {
    if (ServiceFolderLock::acquire()) {
      return 1;
    }
    const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, kPath.c_str(), sizeof address.sun_path - 1);
    return bind(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 2 : 0;
  };
  EXPECT_EQ(ipctests::runAs(ipctests::kSomebody, asSomebody), 0);
}

}  // namespace
