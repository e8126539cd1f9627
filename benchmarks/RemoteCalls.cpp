// remote-calls: how fast two processes talk to each other the way an engine and its watcher do, beside two processes
// that exchange as many bytes over a bare pair of sockets.
//
//   remote-calls anywhere|together [ROUND-TRIPS [STATE-CHANGES]]
//
// The processes are wherever the system puts them, or together on one processor. On a machine with nothing else to do
// the first shows mostly how long an idle processor takes to wake; the second shows what the talk itself costs.
//
// Prints one line per fact, "name value". Needs root, and works in a /var/run of its own.

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "general/foundation/Thread.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/CorvaneDistantObject.h"
#include "general/ipc/DistributedNotifications.h"
#include "general/ipc/NotificationObserver.h"
#include "general/ipc/ServerConnection.h"
#include "general/ipc/VRKConnectionAuthenticator.h"
#include "tests/support/PrivateRunFolder.h"

namespace {

using foundation::PropertyList;
using foundation::RunLoop;
using Clock = std::chrono::steady_clock;

constexpr const char* kServiceName = "com.corvane.installer.benchmark";
constexpr const char* kProtocolName = "RemoteCallsProtocol";
constexpr const char* kUpdated = "com.corvane.installer.update";
constexpr const char* kBundle = "/Volumes/Benchmark/Installer.app";
// What a call without arguments is long, about.
constexpr std::size_t kBytesOfAMessage = 128;

const ipc::Protocol kProtocol(kProtocolName, {{"getCurrentState", {}, ipc::ValueType::Integer32, false},
                                              {"changeState", {}, ipc::ValueType::Nothing, true}});

/// A process that is ended with this object.
class ChildProcess {
 public:
  explicit ChildProcess(const std::function<void()>& body) : process_(fork()) {
    if (process_ == 0) {
      body();
      _exit(0);
    }
    if (process_ < 0) {
      throw std::runtime_error("cannot make a process");
    }
  }
  ~ChildProcess() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

 private:
  pid_t process_;
};

/// Keeps this process, and those that it makes, on the processor that it runs on.
void stayOnOneProcessor() {
  cpu_set_t own;
  CPU_ZERO(&own);
  CPU_SET(sched_getcpu(), &own);
  if (sched_setaffinity(0, sizeof own, &own) != 0) {
    throw std::runtime_error("cannot stay on one processor");
  }
}

std::int64_t nanosecondsNow() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

/// As an engine does it: the state changes on one thread, the service stands on another, and watchers hear of the
/// change in both ways.
void serve(int readyEnd) {
  const std::shared_ptr<RunLoop> worker = RunLoop::current();
  std::shared_ptr<RunLoop> service;
  ipc::ServerConnection* connection = nullptr;
  const auto changeState = [&] {
    const ipc::Notification update{kUpdated, kBundle, PropertyList::dictionary({{"changed", nanosecondsNow()}})};
    service->perform([&connection, update] { connection->sendNotification(update); }, false);
    ipc::postDistributedNotification(update);
  };
  const foundation::NamedThread thread("status server thread", [&] {
    ipc::ServerConnection vended({.peers = ipc::ServerConnection::Peers::Everybody});
    service = RunLoop::current();
    connection = &vended;
    vended.setDelegate(std::make_shared<ipc::VRKConnectionAuthenticator>());
    vended.setRootObject(std::make_shared<ipc::ProtocolChecker>(
        [&](std::string_view selector, std::span<const PropertyList>) -> PropertyList {
          if (selector == "changeState") {
            worker->perform(changeState, false);
            return {};
          }
          return 17;
        },
        kProtocol));
    if (!vended.registerName(kServiceName) || write(readyEnd, "r", 1) != 1) {
      _exit(1);
    }
    while (service->runUntil(Clock::time_point::max())) {
    }
  });
  const auto timer = worker->addTimer(std::chrono::hours(1), true, {});
  while (worker->runUntil(Clock::time_point::max())) {
  }
}

double measureRoundTrips(int count) {
  ipc::CorvaneDistantObject engine(kServiceName, kProtocolName, std::nullopt);
  const auto start = Clock::now();
  for (int call = 0; call < count; ++call) {
    if (engine.send("getCurrentState") != PropertyList(17)) {
      throw std::runtime_error("a call failed");
    }
  }
  return count / std::chrono::duration<double>(Clock::now() - start).count();
}

bool passOn(int from, int to, std::array<char, kBytesOfAMessage>& message) {
  const ssize_t count = recv(from, message.data(), message.size(), MSG_WAITALL);
  return count == static_cast<ssize_t>(message.size()) && send(to, message.data(), message.size(), 0) == count;
}

double measureBareSockets(int count) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::runtime_error("cannot make a pair of sockets");
  }
  const ChildProcess echo([&] {
    std::array<char, kBytesOfAMessage> message{};
    while (passOn(ends[1], ends[1], message)) {
    }
  });
  std::array<char, kBytesOfAMessage> message{};
  const auto start = Clock::now();
  for (int call = 0; call < count; ++call) {
    if (send(ends[0], message.data(), message.size(), 0) < 0 ||
        recv(ends[0], message.data(), message.size(), MSG_WAITALL) != static_cast<ssize_t>(message.size())) {
      throw std::runtime_error("the bare sockets failed");
    }
  }
  return count / std::chrono::duration<double>(Clock::now() - start).count();
}

double medianMicroseconds(std::vector<std::int64_t> nanoseconds) {
  const auto middle = nanoseconds.begin() + static_cast<std::ptrdiff_t>(nanoseconds.size() / 2);
  std::nth_element(nanoseconds.begin(), middle, nanoseconds.end());
  return static_cast<double>(*middle) / 1000;
}

std::int64_t ageOf(const ipc::Notification& notification) {
  return nanosecondsNow() - notification.userInfo["changed"].integer().value_or(0);
}

/// An engine that watches another one: it hears on its run loop.
double measureDistributedNotifications(int count) {
  ipc::CorvaneDistantObject engine(kServiceName, kProtocolName, std::nullopt);
  ipc::NotificationObserver observer;
  std::vector<std::int64_t> ages;
  observer.add(kUpdated, kBundle, [&](const ipc::Notification& notification) { ages.push_back(ageOf(notification)); });
  for (int change = 1; change <= count; ++change) {
    engine.send("changeState");
    while (ages.size() < static_cast<std::size_t>(change)) {
      RunLoop::current()->runUntil(Clock::now() + std::chrono::seconds(10));
    }
  }
  return medianMicroseconds(std::move(ages));
}

/// A front end: it is told over its connection.
double measureNotificationsOverTheConnection(int count) {
  ipc::ClientIdentity identity;
  const auto connection = ipc::ClientConnection::connectionWithRegisteredName(kServiceName);
  if (connection == nullptr) {
    throw std::runtime_error("nobody serves");
  }
  connection->setDelegate(&identity);
  connection->observeNotifications();
  std::vector<std::int64_t> ages;
  for (int change = 1; change <= count; ++change) {
    connection->invoke(*kProtocol.operation("changeState"), {});
    while (ages.size() < static_cast<std::size_t>(change)) {
      pollfd watched{connection->descriptor(), POLLIN, 0};
      poll(&watched, 1, 10000);
      for (const ipc::Notification& notification : connection->takeNotifications()) {
        ages.push_back(ageOf(notification));
      }
    }
  }
  return medianMicroseconds(std::move(ages));
}

void measure(int roundTrips, int stateChanges) {
  if (const auto reason = tests::enterPrivateRunFolder()) {
    throw std::runtime_error(*reason);
  }
  std::array<int, 2> ready{};
  if (pipe2(ready.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("cannot make a pipe");
  }
  const ChildProcess engine([&] { serve(ready[1]); });
  close(ready[1]);
  char answer = 0;
  if (read(ready[0], &answer, 1) != 1) {
    throw std::runtime_error("the service did not start");
  }
  measureRoundTrips(roundTrips / 10);
  std::cout << "round-trips-per-second " << measureRoundTrips(roundTrips) << "\n"
            << "bare-socket-round-trips-per-second " << measureBareSockets(roundTrips) << "\n"
            << "notification-microseconds " << measureDistributedNotifications(stateChanges) << "\n"
            << "connection-notification-microseconds " << measureNotificationsOverTheConnection(stateChanges) << "\n";
}

int numberIn(const char* text) {
  const int number = std::stoi(text);
  return number > 0 ? number : throw std::invalid_argument("not a count");
}

}  // namespace

int main(int count, char** values) {
  const std::string_view placement = count > 1 ? values[1] : "";
  if (count > 4 || (placement != "anywhere" && placement != "together")) {
    std::cerr << "usage: remote-calls anywhere|together [ROUND-TRIPS [STATE-CHANGES]]\n";
    return 2;
  }
  try {
    if (placement == "together") {
      stayOnOneProcessor();
    }
    measure(count > 2 ? numberIn(values[2]) : 100000, count > 3 ? numberIn(values[3]) : 1000);
    return 0;
  } catch (const std::exception& problem) {
    std::cerr << "remote-calls: " << problem.what() << '\n';
    return 1;
  }
}
