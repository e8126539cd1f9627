#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "general/foundation/Descriptor.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/DistributedNotifications.h"
#include "general/ipc/NotificationObserver.h"
#include "general/ipc/ServiceFolder.h"
#include "general/ipc/ServiceSocket.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRunFolder.h"

namespace {

using foundation::Descriptor;
using foundation::PropertyList;
using foundation::RunLoop;
using ipc::Notification;
using ipc::NotificationObserver;
using ipc::postDistributedNotification;
using tests::CapturedLog;

namespace fs = std::filesystem;

constexpr const char* kName = "com.corvane.installer.update";
constexpr const char* kObject = "/Volumes/Disk/Installer.app";

/// Turns the run loop until something has come about; false when it does not.
bool turnUntil(const std::function<bool()>& condition) {
  const auto limit = RunLoop::Clock::now() + std::chrono::minutes(2);
  while (!condition()) {
    if (!RunLoop::current()->runUntil(limit) || RunLoop::Clock::now() >= limit) {
      return false;
    }
  }
  return true;
}

/// An observer that keeps the user info of what it hears.
class Listener {
 public:
  explicit Listener(std::optional<std::string> object = kObject) {
    observer_.add(kName, std::move(object),
                  [this](const Notification& notification) { heard_.push_back(notification.userInfo["n"]); });
  }
  NotificationObserver& observer() { return observer_; }
  [[nodiscard]] bool hears(std::size_t count) {
    return turnUntil([&] { return heard_.size() >= count; }) && heard_.size() == count;
  }
  [[nodiscard]] const std::vector<PropertyList>& heard() const { return heard_; }

 private:
  NotificationObserver observer_;
  std::vector<PropertyList> heard_;
};

void post(int number, const std::string& object = kObject) {
  postDistributedNotification({kName, object, PropertyList::dictionary({{"n", number}})});
}

std::vector<PropertyList> numbers(int from, int to) {
  std::vector<PropertyList> all;
  for (int number = from; number <= to; ++number) {
    all.emplace_back(number);
  }
  return all;
}

class DistributedNotifications : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const auto reason = tests::enterPrivateRunFolder()) {
      GTEST_SKIP() << *reason;
    }
  }

  static std::string folder() { return std::string(ipc::kObserverFolder); }
  static std::vector<fs::path> sockets() {
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(folder())) {
      found.push_back(entry.path());
    }
    return found;
  }
  static sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    return address;
  }
  /// A socket that nobody listens on, as a killed process leaves it.
  static void makeDeadSocket(const std::string& path) {
    const sockaddr_un address = addressOf(path);
    const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(bind(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  static Descriptor connectTo(const std::string& path) {
    const sockaddr_un address = addressOf(path);
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(connect(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return socket;
  }
  static void write(const Descriptor& socket, std::string_view bytes) {
    EXPECT_EQ(send(socket.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  }
};

TEST_F(DistributedNotifications, CarryNameObjectAndUserInfo) {
  NotificationObserver observer;
  EXPECT_TRUE(observer.isListening());
  std::vector<Notification> heard;
  observer.add(kName, kObject, [&](const Notification& notification) { heard.push_back(notification); });
  const PropertyList userInfo = PropertyList::dictionary({{"serviceName", "com.corvane.installer.12"}});
  postDistributedNotification({kName, kObject, userInfo});
  postDistributedNotification({kName, kObject, {}});
  ASSERT_TRUE(turnUntil([&] { return heard.size() == 2; }));
  EXPECT_EQ(heard[0].name, kName);
  EXPECT_EQ(heard[0].object, kObject);
  EXPECT_EQ(heard[0].userInfo, userInfo);
  EXPECT_TRUE(heard[1].userInfo.isNil());
}

TEST_F(DistributedNotifications, ReachOnlyThoseWhoAskedForNameAndObject) {
  Listener ofObject;
  Listener ofAnything(std::nullopt);
  postDistributedNotification({"com.corvane.installer.other", kObject, {}});
  post(1, "/somebody/else");
  post(2);
  EXPECT_TRUE(ofAnything.hears(2));
  EXPECT_TRUE(ofObject.hears(1));
  EXPECT_EQ(ofAnything.heard(), numbers(1, 2));
  EXPECT_EQ(ofObject.heard(), numbers(2, 2));
}

TEST_F(DistributedNotifications, WithoutAnObserverAreNoError) {
  const CapturedLog log;
  post(1);
  { const NotificationObserver observer; }
  post(2);
  EXPECT_EQ(log.text(), "");
}

TEST_F(DistributedNotifications, ComeFromOtherProcesses) {
  Listener listener;
  const pid_t child = fork();
  if (child == 0) {
    post(1);
    _exit(0);
  }
  EXPECT_TRUE(listener.hears(1));
  waitpid(child, nullptr, 0);
}

TEST_F(DistributedNotifications, HundredsWaitForABusyObserverInTheirOrder) {
  Listener first;
  Listener second;
  for (int number = 1; number <= 500; ++number) {
    post(number);
  }
  EXPECT_TRUE(first.hears(500));
  EXPECT_TRUE(second.hears(500));
  EXPECT_EQ(first.heard(), numbers(1, 500));
  EXPECT_EQ(second.heard(), numbers(1, 500));
}

TEST_F(DistributedNotifications, OfEachThreadKeepTheirOrderWhileOthersPost) {
  constexpr int kEach = 300;
  Listener listener(std::nullopt);
  std::vector<std::thread> threads;
  for (const int start : {1, 1001, 2001}) {
    threads.emplace_back([start] {
      for (int number = start; number < start + kEach; ++number) {
        post(number);
      }
    });
  }
  EXPECT_TRUE(listener.hears(std::size_t{3} * kEach));
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const int start : {1, 1001, 2001}) {
    std::vector<PropertyList> ofThread;
    for (const PropertyList& number : listener.heard()) {
      if (*number.integer() / 1000 == start / 1000) {
        ofThread.push_back(number);
      }
    }
    EXPECT_EQ(ofThread, numbers(start, start + kEach - 1));
  }
}

TEST_F(DistributedNotifications, DoNotWaitForAnObserverThatNeverReads) {
  std::promise<void> ready;
  std::promise<void> done;
  std::thread deaf([&] {
    const NotificationObserver observer;
    ready.set_value();
    done.get_future().wait();
  });
  ready.get_future().wait();
  Listener listener;
  const std::string backlog = "/proc/sys/net/core/somaxconn";
  int most = 0;
  std::ifstream(backlog) >> most;
  const CapturedLog log;
  // Some more than the system keeps for it.
  for (int number = 1; number <= most + 100; ++number) {
    post(number);
    if (!listener.hears(static_cast<std::size_t>(number))) {
      ADD_FAILURE() << "not heard: " << number;
      break;
    }
  }
  EXPECT_FALSE(log.texts("Error").empty()) << "what could not be delivered is said";
  done.set_value();
  deaf.join();
}

TEST_F(DistributedNotifications, AreNotPostedByOtherUsers) {
  Listener listener;
  const pid_t child = fork();
  if (child == 0) {
    if (setuid(65534) != 0) {
      _exit(2);
    }
    post(1);
    _exit(0);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_EQ(status, 0);
  post(2);
  EXPECT_TRUE(listener.hears(1));
  EXPECT_EQ(listener.heard(), numbers(2, 2));
}

TEST_F(DistributedNotifications, AreNotObservedByOtherUsers) {
  const pid_t child = fork();
  if (child == 0) {
    if (setuid(65534) != 0) {
      _exit(2);
    }
    NotificationObserver observer;
    observer.add(kName, std::nullopt, [](const Notification&) {});
    observer.remove(kName, std::nullopt);
    _exit(observer.isListening() ? 1 : 0);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(DistributedNotifications, NeedSocketsThatOnlyRootCanOpen) {
  const NotificationObserver observer;
  ASSERT_EQ(sockets().size(), 1U);
  struct stat status {};
  ASSERT_EQ(stat(sockets()[0].c_str(), &status), 0);
  EXPECT_TRUE(S_ISSOCK(status.st_mode));
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  ASSERT_EQ(stat(folder().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
  EXPECT_EQ(status.st_uid, 0U);
}

TEST_F(DistributedNotifications, LeaveNothingBehindWhenAnObserverEnds) {
  { const NotificationObserver observer; }
  EXPECT_TRUE(sockets().empty());
}

TEST_F(DistributedNotifications, PassByWhatIsNoObserver) {
  Listener listener;
  std::ofstream(folder() + "/a-file") << "content";
  fs::create_directory(folder() + "/a-folder");
  fs::create_symlink("/nowhere", folder() + "/a-link");
  ASSERT_EQ(mkfifo((folder() + "/a-pipe").c_str(), 0600), 0);
  post(1);
  EXPECT_TRUE(listener.hears(1));
  EXPECT_EQ(sockets().size(), 5U);
}

TEST_F(DistributedNotifications, SweepTheSocketsOfDeadObservers) {
  Listener listener;
  makeDeadSocket(folder() + "/dead");
  post(1);
  EXPECT_TRUE(listener.hears(1));
  EXPECT_FALSE(fs::exists(folder() + "/dead"));
  EXPECT_EQ(sockets().size(), 1U);
}

TEST_F(DistributedNotifications, AreNotLedOutOfTheFolderByALink) {
  makeDeadSocket("/var/run/elsewhere");
  Listener listener;
  fs::create_symlink("/var/run/elsewhere", folder() + "/link");
  post(1);
  EXPECT_TRUE(listener.hears(1));
  EXPECT_TRUE(fs::exists("/var/run/elsewhere"));
}

TEST_F(DistributedNotifications, AreNeitherPostedNorObservedInAFolderOfSomebodyElse) {
  fs::create_directory(std::string(ipc::kServiceFolder));
  fs::create_directory(folder());
  ASSERT_EQ(chown(folder().c_str(), 65534, 65534), 0);
  const CapturedLog log;
  const NotificationObserver observer;
  EXPECT_FALSE(observer.isListening());
  EXPECT_EQ(log.texts("Error").size(), 1U);
  makeDeadSocket(folder() + "/dead");
  post(1);
  EXPECT_TRUE(fs::exists(folder() + "/dead"));
}

TEST_F(DistributedNotifications, GarbageCostsNothingButItself) {
  using namespace std::string_view_literals;
  Listener listener;
  const std::string socket = sockets()[0];
  for (const std::string_view garbage : {"\xff\xff\xff\xffhuge"sv, "\0\0\0\0"sv, "\0\0\0\x05wrong"sv,
                                         "\0\0\0\x10half"sv, "\0"sv, ""sv, "\0\0\0\x12<plist>7</plist>"sv}) {
    write(connectTo(socket), garbage);
    post(1);
    post(2);
  }
  EXPECT_TRUE(listener.hears(14));
}

TEST_F(DistributedNotifications, ASenderThatNeverFinishesHoldsNobodyUp) {
  Listener listener;
  std::vector<Descriptor> unfinished;
  for (int number = 0; number < 100; ++number) {
    unfinished.push_back(connectTo(sockets()[0]));
    write(unfinished.back(), std::string_view("\0\0", 2));
  }
  post(1);
  EXPECT_TRUE(listener.hears(1));
}

TEST_F(DistributedNotifications, BeyondTheirLargestSizeAreDroppedAndSoIsSaid) {
  Listener listener;
  const CapturedLog log;
  postDistributedNotification(
      {kName, kObject, PropertyList::dictionary({{"n", std::string(std::size_t{1} << 22, 'x')}})});
  post(2);
  EXPECT_TRUE(listener.hears(1));
  EXPECT_EQ(listener.heard(), numbers(2, 2));
  EXPECT_EQ(log.texts("Error").size(), 1U);
}

TEST_F(DistributedNotifications, AHandlerCanRemoveItselfAndOthers) {
  NotificationObserver observer;
  int first = 0;
  int second = 0;
  observer.add(kName, kObject, [&](const Notification&) {
    ++first;
    observer.remove(kName, kObject);
    observer.remove(kName, std::nullopt);
  });
  observer.add(kName, std::nullopt, [&](const Notification&) { ++second; });
  Listener listener;
  post(1);
  post(2);
  EXPECT_TRUE(listener.hears(2));
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 0);
}

TEST_F(DistributedNotifications, RemovingLeavesOtherNamesAndObjects) {
  NotificationObserver observer;
  int heard = 0;
  const auto count = [&](const Notification&) { ++heard; };
  observer.add(kName, kObject, count);
  observer.add(kName, std::nullopt, count);
  observer.add("other", kObject, count);
  observer.remove(kName, "/somebody/else");
  observer.remove("third", std::nullopt);
  post(1);
  EXPECT_TRUE(turnUntil([&] { return heard == 2; }));
  observer.remove(kName, kObject);
  post(2);
  EXPECT_TRUE(turnUntil([&] { return heard == 3; }));
}

TEST_F(DistributedNotifications, AHandlerAddedByAHandlerHearsTheNextOnes) {
  NotificationObserver observer;
  std::vector<PropertyList> heard;
  bool added = false;
  observer.add(kName, kObject, [&](const Notification&) {
    if (!added) {
      added = true;
      for (int i = 0; i < 20; ++i) {
        observer.add(kName, kObject,
                     [&](const Notification& notification) { heard.push_back(notification.userInfo["n"]); });
      }
    }
  });
  post(1);
  post(2);
  EXPECT_TRUE(turnUntil([&] { return heard.size() >= 20; }));
  EXPECT_EQ(heard, std::vector<PropertyList>(20, 2));
}

TEST_F(DistributedNotifications, AHandlerCanEndTheObserverItBelongsTo) {
  auto observer = std::make_unique<NotificationObserver>();
  int heard = 0;
  const auto endIt = [&](const Notification&) {
    ++heard;
    observer.reset();
  };
  observer->add(kName, kObject, endIt);
  observer->add(kName, kObject, endIt);
  Listener listener;
  post(1);
  post(2);
  EXPECT_TRUE(listener.hears(2));
  EXPECT_EQ(heard, 1);
  EXPECT_EQ(sockets().size(), 1U);
}

TEST_F(DistributedNotifications, AHandlerThatTurnsTheLoopHearsTheNextOneMeanwhile) {
  NotificationObserver observer;
  std::vector<PropertyList> heard;
  observer.add(kName, kObject, [&](const Notification& notification) {
    heard.push_back(notification.userInfo["n"]);
    if (heard.size() == 1) {
      EXPECT_TRUE(turnUntil([&] { return heard.size() >= 3; }));
    }
  });
  for (int number = 1; number <= 4; ++number) {
    post(number);
  }
  EXPECT_TRUE(turnUntil([&] { return heard.size() == 4; }));
  EXPECT_EQ(heard, numbers(1, 4));
}

TEST_F(DistributedNotifications, AHandlerThatThrowsLosesNoOtherNotification) {
  NotificationObserver observer;
  std::vector<PropertyList> heard;
  observer.add(kName, kObject, [&](const Notification& notification) {
    heard.push_back(notification.userInfo["n"]);
    if (heard.size() == 1) {
      throw std::runtime_error("of the handler");
    }
  });
  for (int number = 1; number <= 3; ++number) {
    post(number);
  }
  EXPECT_THROW(turnUntil([&] { return heard.size() == 3; }), std::runtime_error);
  EXPECT_TRUE(turnUntil([&] { return heard.size() == 3; }));
  EXPECT_EQ(heard, numbers(1, 3));
}

TEST_F(DistributedNotifications, ReachTheThreadOfEachObserver) {
  Listener here;
  std::atomic<bool> listening = false;
  std::thread::id heardOn;
  std::thread other([&] {
    Listener there;
    listening = true;
    EXPECT_TRUE(there.hears(1));
    heardOn = std::this_thread::get_id();
  });
  while (!listening) {
    std::this_thread::yield();
  }
  post(1);
  EXPECT_TRUE(here.hears(1));
  other.join();
}

}  // namespace
