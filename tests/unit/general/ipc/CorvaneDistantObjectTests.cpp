#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "general/foundation/Descriptor.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/CorvaneDistantObject.h"
#include "general/ipc/DistributedNotifications.h"
#include "general/ipc/ServerConnection.h"
#include "general/ipc/VRKConnectionAuthenticator.h"
#include "general/logging/SystemLog.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRunFolder.h"

namespace {

using foundation::Descriptor;
using foundation::PropertyList;
using foundation::RunLoop;
using ipc::CorvaneDistantObject;
using ipc::RemoteException;
using tests::CapturedLog;

constexpr const char* kName = "com.corvane.installer.test";
constexpr const char* kProtocol = "DistantObjectTestProtocol";
constexpr const char* kStarted = "com.corvane.installer.test.started";
constexpr double kShortTimeout = 0.05;

const ipc::Protocol kTestProtocol(kProtocol, {
                                                 {"count", {}, ipc::ValueType::Integer32, false},
                                                 {"echo:", {ipc::ValueType::Object}, ipc::ValueType::Object, false},
                                                 {"raise:", {ipc::ValueType::Object}, ipc::ValueType::Nothing, false},
                                                 {"failTimes:", {ipc::ValueType::Integer32}, ipc::ValueType::Boolean},
                                                 {"die", {}, ipc::ValueType::Nothing, false},
                                                 {"poke", {}, ipc::ValueType::Nothing, true},
                                             });

/// What the server's process tells the test's.
class SharedCount {
 public:
  SharedCount() {
    void* memory = mmap(nullptr, sizeof(Count), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
      throw std::bad_alloc();
    }
    count_ = new (memory) Count(0);
  }
  ~SharedCount() { munmap(count_, sizeof(Count)); }
  SharedCount(const SharedCount&) = delete;
  SharedCount& operator=(const SharedCount&) = delete;
  int operator++() const { return ++*count_; }
  [[nodiscard]] int value() const { return *count_; }

 private:
  using Count = std::atomic<int>;
  Count* count_;
};

/// Shows what no client expects.
class WrongAuthenticator : public ipc::VRKConnectionAuthenticator {
 public:
  std::vector<std::byte> authenticationDataForComponents(std::span<const std::byte> /*components*/) override {
    return std::vector<std::byte>(16, std::byte{1});
  }
};

/// The object of the protocol above, vended by a process of its own.
class Server {
 public:
  struct Options {
    bool authentic = true;
    bool announces = false;
    bool waits = false;  ///< serves nothing before start()
    ipc::ServerConnection::Peers peers = ipc::ServerConnection::Peers::RootOnly;
  };

  explicit Server(const SharedCount& calls) : Server(calls, Options{}) {}
  Server(const SharedCount& calls, Options options) {
    int ready[2];
    int go[2];
    EXPECT_EQ(pipe2(ready, O_CLOEXEC) + pipe2(go, O_CLOEXEC), 0);
    process_ = fork();
    if (process_ == 0) {
      close(ready[0]);
      close(go[1]);
      char start = 0;
      _exit(read(go[0], &start, 1) == 1 ? serve(calls, options, ready[1]) : 1);
    }
    close(ready[1]);
    close(go[0]);
    ready_ = Descriptor(ready[0]);
    go_ = Descriptor(go[1]);
    if (!options.waits) {
      start();
    }
  }
  ~Server() { kill(); }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  void start() const {
    char answer = 0;
    EXPECT_EQ(write(go_.number(), "g", 1), 1);
    EXPECT_EQ(read(ready_.number(), &answer, 1), 1) << "the server did not start";
  }
  void kill() {
    if (process_ > 0) {
      ::kill(process_, SIGKILL);
      awaitEnd();
    }
  }
  void awaitEnd() {
    waitpid(process_, nullptr, 0);
    process_ = 0;
  }
  /// From now on it takes connections and requests, as far as the system takes them for it, and does nothing.
  void fallSilent() const {
    ::kill(process_, SIGSTOP);
    waitpid(process_, nullptr, WUNTRACED);
  }

 private:
  static PropertyList carryOut(const SharedCount& calls, std::string_view selector,
                               std::span<const PropertyList> arguments) {
    if (selector == "count") {
      return calls.value();
    }
    const int call = ++calls;
    if (selector == "echo:") {
      return arguments[0];
    }
    if (selector == "raise:") {
      throw RemoteException(arguments[0].text(), "wanted so");
    }
    if (selector == "failTimes:") {
      if (call <= arguments[0].integer().value_or(0)) {
        throw RemoteException("NotYetException", "too early");
      }
      return true;
    }
    if (selector == "die") {
      ::kill(getpid(), SIGKILL);
    }
    return {};
  }

  static int serve(const SharedCount& calls, Options options, int ready) {
    const auto target = [&](std::string_view selector, std::span<const PropertyList> arguments) {
      return carryOut(calls, selector, arguments);
    };
    ipc::ServerConnection connection({.peers = options.peers});
    connection.setDelegate(options.authentic ? std::make_shared<ipc::VRKConnectionAuthenticator>()
                                             : std::make_shared<WrongAuthenticator>());
    connection.setRootObject(std::make_shared<ipc::ProtocolChecker>(target, kTestProtocol));
    if (!connection.registerName(kName) || write(ready, "r", 1) != 1) {
      return 1;
    }
    if (options.announces) {
      ipc::postDistributedNotification({kStarted, "anybody", {}});
    }
    while (RunLoop::current()->runUntil(RunLoop::Clock::time_point::max())) {
    }
    return 0;
  }

  pid_t process_ = -1;
  Descriptor ready_;
  Descriptor go_;
};

std::string attempt(std::string_view exception, int number) {
  return "An exception was encountered while messaging the server: " + std::string(exception) +
         ". Retrying: " + std::to_string(number) + " attempt(s)";
}

class DistantObject : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const auto reason = tests::enterPrivateRunFolder()) {
      GTEST_SKIP() << *reason;
    }
    ipc::gTimeoutInterval = 10.0;
  }

  static std::unique_ptr<CorvaneDistantObject> plain() {
    return std::make_unique<CorvaneDistantObject>(kName, kProtocol, std::nullopt);
  }
  /// With time-outs as before: the tests of these set their own.
  static std::unique_ptr<CorvaneDistantObject> retrying() {
    auto object = std::make_unique<CorvaneDistantObject>(kName, kProtocol, std::nullopt, true);
    ipc::gTimeoutInterval = 10.0;
    return object;
  }
  [[nodiscard]] static std::string recent(const CorvaneDistantObject& object) {
    return object.recentException() ? object.recentException()->name() : "none";
  }

  const SharedCount calls_;
};

using Texts = std::vector<std::string>;

TEST_F(DistantObject, IsNotInitialisedForAnUnknownProtocol) {
  const CorvaneDistantObject object(kName, "NoSuchProtocol", std::nullopt);
  EXPECT_FALSE(object.respondsToSelector("count"));
  EXPECT_EQ(object.methodSignatureForSelector("count"), nullptr);
  EXPECT_FALSE(object.remoteServerName());
  EXPECT_FALSE(object.protocolName());
  EXPECT_FALSE(object.serverDidStartNotificationName());
  EXPECT_FALSE(object.shouldPersistConnection());
}

TEST_F(DistantObject, IsNotInitialisedWithoutNames) {
  const CorvaneDistantObject noServer(std::nullopt, kProtocol, std::nullopt);
  EXPECT_FALSE(noServer.respondsToSelector("count"));
  EXPECT_FALSE(noServer.protocolName());
  const CorvaneDistantObject noProtocol(kName, std::nullopt, std::nullopt);
  EXPECT_FALSE(noProtocol.respondsToSelector("count"));
  const CorvaneDistantObject nothing;
  EXPECT_FALSE(nothing.respondsToSelector("count"));
}

TEST_F(DistantObject, AnUninitialisedObjectRefusesEveryMessage) {
  CorvaneDistantObject object(kName, "NoSuchProtocol", std::nullopt);
  EXPECT_THROW(object.send("count"), RemoteException);
  EXPECT_FALSE(object.isConnected());
}

TEST_F(DistantObject, KeepsItsNames) {
  const CorvaneDistantObject object(kName, kProtocol, kStarted);
  EXPECT_EQ(object.remoteServerName(), kName);
  EXPECT_EQ(object.protocolName(), kProtocol);
  EXPECT_EQ(object.serverDidStartNotificationName(), kStarted);
  EXPECT_TRUE(object.shouldPersistConnection());
  EXPECT_FALSE(object.retryAfterException());
}

TEST_F(DistantObject, AnswersForItsProtocolWithoutAServer) {
  const auto object = plain();
  EXPECT_TRUE(object->respondsToSelector("count"));
  EXPECT_FALSE(object->respondsToSelector("count:"));
  ASSERT_NE(object->methodSignatureForSelector("poke"), nullptr);
  EXPECT_TRUE(object->methodSignatureForSelector("poke")->oneWay);
  EXPECT_EQ(object->methodSignatureForSelector("dealloc"), nullptr);
  EXPECT_FALSE(object->isConnected());
}

TEST_F(DistantObject, OpensTheLogOnceForItsLife) {
  {
    const auto first = plain();
    ASSERT_NE(logging::corvanelogger_getclient(), nullptr);
    EXPECT_EQ(logging::corvanelogger_getclient()->sender(), "Corvane Distant Object");
    EXPECT_EQ(logging::corvanelogger_getclient()->facility(), "com.corvane.tidewell.libCorvaneDistantObject");
    { const auto second = plain(); }
    EXPECT_EQ(logging::corvanelogger_getclient()->sender(), "Corvane Distant Object");
  }
  EXPECT_EQ(logging::corvanelogger_getclient()->sender(), "<no asl_client>");
}

TEST_F(DistantObject, TheRetryInitialiserRaisesTheTimeoutOfAllForGood) {
  EXPECT_EQ(ipc::gTimeoutInterval, 10.0);
  { const CorvaneDistantObject plainOne(kName, kProtocol, std::nullopt); }
  EXPECT_EQ(ipc::gTimeoutInterval, 10.0);
  {
    const CorvaneDistantObject notEvenRetrying(kName, kProtocol, std::nullopt, false);
    EXPECT_FALSE(notEvenRetrying.retryAfterException());
  }
  EXPECT_EQ(ipc::gTimeoutInterval, 60.0);
  const CorvaneDistantObject later(kName, kProtocol, std::nullopt);
  EXPECT_EQ(ipc::gTimeoutInterval, 60.0);
}

TEST_F(DistantObject, ConnectsWhenItIsFirstUsedAndStaysConnected) {
  const Server server(calls_);
  const auto object = plain();
  EXPECT_FALSE(object->isConnected());
  EXPECT_EQ(object->send("echo:", {"hello"}), PropertyList("hello"));
  EXPECT_TRUE(object->isConnected());
  EXPECT_EQ(object->send("count"), PropertyList(1));
  EXPECT_FALSE(object->recentException());
}

TEST_F(DistantObject, GivesUpTheConnectionAfterEachCallWhenItIsNotToBeKept) {
  const Server server(calls_);
  const auto object = plain();
  object->setPersistConnection(false);
  EXPECT_EQ(object->send("echo:", {1}), PropertyList(1));
  EXPECT_FALSE(object->isConnected());
  EXPECT_EQ(object->send("echo:", {2}), PropertyList(2));
  EXPECT_FALSE(object->isConnected());
}

TEST_F(DistantObject, ACallWithoutAServerGivesNilAndNoException) {
  const CapturedLog log;
  const auto object = retrying();
  EXPECT_TRUE(object->send("count").isNil());
  EXPECT_FALSE(object->recentException());
  EXPECT_FALSE(object->isConnected());
  EXPECT_EQ(log.texts("Notice"), Texts{});
}

TEST_F(DistantObject, ACallWithoutAServerReturnsZeroWhateverTheInvocationHeld) {
  const auto object = plain();
  ipc::Invocation invocation{"count", {}, "before"};
  object->forwardInvocation(invocation);
  EXPECT_TRUE(invocation.returnValue.isNil());
  EXPECT_EQ(invocation.returnValue.integer().value_or(0), 0);
  EXPECT_FALSE(object->recentException());
}

TEST_F(DistantObject, ACallThatFailedLeavesTheReturnValueAsItWas) {
  const Server server(calls_);
  const CapturedLog log;
  const auto object = plain();
  ipc::Invocation invocation{"raise:", {"ServerException"}, "before"};
  object->forwardInvocation(invocation);
  EXPECT_EQ(recent(*object), "ServerException");
  EXPECT_EQ(invocation.returnValue, PropertyList("before"));
}

TEST_F(DistantObject, FindsAServerThatStartsLater) {
  const auto object = plain();
  EXPECT_TRUE(object->send("echo:", {1}).isNil());
  const Server server(calls_);
  EXPECT_EQ(object->send("echo:", {1}), PropertyList(1));
}

TEST_F(DistantObject, DoesNotForwardASelectorOutsideTheProtocol) {
  const Server server(calls_);
  const auto object = retrying();
  EXPECT_EQ(object->send("echo:", {1}), PropertyList(1));
  try {
    object->send("shutdownService");
    ADD_FAILURE() << "nothing was thrown";
  } catch (const RemoteException& exception) {
    EXPECT_EQ(exception.name(), ipc::kInvalidArgumentException);
  }
  EXPECT_FALSE(object->recentException());
  EXPECT_TRUE(object->isConnected());
  EXPECT_EQ(object->send("count"), PropertyList(1));
  object->setPersistConnection(false);
  EXPECT_THROW(object->send("shutdownService"), RemoteException);
  EXPECT_FALSE(object->isConnected());
}

TEST_F(DistantObject, KeepsTheExceptionOfAFailedCallUntilTheNext) {
  const Server server(calls_);
  const CapturedLog log;
  const auto object = plain();
  EXPECT_TRUE(object->send("raise:", {"ServerException"}).isNil());
  EXPECT_EQ(recent(*object), "ServerException");
  EXPECT_FALSE(object->isConnected());
  EXPECT_EQ(log.texts("Notice"), Texts{attempt("ServerException", 1)});
  EXPECT_EQ(object->send("echo:", {3}), PropertyList(3));
  EXPECT_EQ(recent(*object), "none");
}

TEST_F(DistantObject, TriesAFailingCallFiveTimesAndKeepsItsException) {
  const Server server(calls_);
  const CapturedLog log;
  const auto object = retrying();
  EXPECT_TRUE(object->send("raise:", {"ServerException"}).isNil());
  EXPECT_EQ(recent(*object), "ServerException");
  EXPECT_EQ(calls_.value(), 5);
  EXPECT_EQ(log.texts("Notice"),
            (Texts{attempt("ServerException", 1), attempt("ServerException", 2), attempt("ServerException", 3),
                   attempt("ServerException", 4), attempt("ServerException", 5)}));
}

TEST_F(DistantObject, StopsTryingOnceACallSucceeds) {
  const Server server(calls_);
  const CapturedLog log;
  const auto object = retrying();
  EXPECT_EQ(object->send("failTimes:", {2}), PropertyList(true));
  EXPECT_EQ(recent(*object), "none");
  EXPECT_TRUE(object->isConnected());
  EXPECT_EQ(calls_.value(), 3);
  EXPECT_EQ(log.texts("Notice"), (Texts{attempt("NotYetException", 1), attempt("NotYetException", 2)}));
}

TEST_F(DistantObject, SucceedsInTheLastAttempt) {
  const Server server(calls_);
  const auto object = retrying();
  EXPECT_EQ(object->send("failTimes:", {4}), PropertyList(true));
  EXPECT_EQ(recent(*object), "none");
}

TEST_F(DistantObject, NoticesAtTheNextCallThatTheServerWasKilled) {
  Server server(calls_);
  const CapturedLog log;
  const auto object = retrying();
  EXPECT_EQ(object->send("echo:", {1}), PropertyList(1));
  server.kill();
  EXPECT_TRUE(object->send("echo:", {2}).isNil());
  EXPECT_EQ(recent(*object), "none");
  EXPECT_FALSE(object->isConnected());
  EXPECT_EQ(log.texts("Notice"), Texts{});
}

TEST_F(DistantObject, ConnectsAfreshToARestartedServer) {
  auto server = std::make_unique<Server>(calls_);
  const CapturedLog log;
  const auto object = plain();
  EXPECT_EQ(object->send("echo:", {1}), PropertyList(1));
  server->kill();
  server = std::make_unique<Server>(calls_);
  EXPECT_EQ(object->send("echo:", {2}), PropertyList(2));
  EXPECT_EQ(log.texts("Notice"), Texts{});
}

TEST_F(DistantObject, AServerThatDiesDuringACallIsAnException) {
  const Server server(calls_);
  const CapturedLog log;
  const auto object = plain();
  EXPECT_TRUE(object->send("die").isNil());
  EXPECT_EQ(recent(*object), ipc::kInvalidReceivePortException);
  EXPECT_EQ(log.texts("Notice"), Texts{attempt(ipc::kInvalidReceivePortException, 1)});
}

TEST_F(DistantObject, AnAttemptThatFindsNobodyAnyMoreEndsTheCallWithoutAnException) {
  const Server server(calls_);
  const CapturedLog log;
  const auto object = retrying();
  EXPECT_TRUE(object->send("die").isNil());
  EXPECT_EQ(recent(*object), "none");
  EXPECT_EQ(log.texts("Notice"), Texts{attempt(ipc::kInvalidReceivePortException, 1)});
}

TEST_F(DistantObject, ASilentServerTimesOutInEveryAttempt) {
  const Server server(calls_);
  server.fallSilent();
  const CapturedLog log;
  const auto object = retrying();
  ipc::gTimeoutInterval = kShortTimeout;
  EXPECT_TRUE(object->send("count").isNil());
  EXPECT_EQ(recent(*object), ipc::kPortTimeoutException);
  Texts expected;
  for (int number = 1; number <= 5; ++number) {
    expected.push_back(attempt(ipc::kPortTimeoutException, number));
  }
  EXPECT_EQ(log.texts("Notice"), expected);
}

TEST_F(DistantObject, AOneWayMessageDoesNotWaitForASilentServer) {
  const Server server(calls_);
  server.fallSilent();
  const auto object = plain();
  EXPECT_TRUE(object->send("poke").isNil());
  EXPECT_EQ(recent(*object), "none");
}

TEST_F(DistantObject, RefusesAServerThatIsNotAuthentic) {
  const Server server(calls_, {.authentic = false});
  const auto object = plain();
  EXPECT_TRUE(object->send("count").isNil());
  EXPECT_EQ(recent(*object), ipc::kFailedAuthenticationException);
  EXPECT_FALSE(object->isConnected());
}

TEST_F(DistantObject, ConversionsInAnExceptionsNameReadNoMemory) {
  const Server server(calls_);
  const CapturedLog log;
  const auto object = plain();
  const std::string name = "%n|%s|%d|%x|%@|%p|%*d|%1$s|%-5d|%hhn|%%|%";
  object->send("raise:", {name});
  EXPECT_EQ(recent(*object), name);
  EXPECT_EQ(log.texts("Notice"), Texts{attempt("%n|(null)|0|0|(null)|%p|%*d|%1$s|%-5d|%hhn|%|%", 1)});
}

TEST_F(DistantObject, AHugeWidthInAnExceptionsNameCostsNothing) {
  const Server server(calls_);
  const CapturedLog log;
  const auto object = plain();
  object->send("raise:", {"%99999999d"});
  ASSERT_EQ(log.texts("Notice").size(), 1U);
  EXPECT_LT(log.texts("Notice")[0].size(), 1000U);
}

TEST_F(DistantObject, CutsTheLogLineOfAnExceptionWithALongName) {
  const Server server(calls_);
  const CapturedLog log;
  const auto object = plain();
  object->send("raise:", {std::string(10000, 'x')});
  ASSERT_EQ(log.texts("Notice").size(), 1U);
  EXPECT_EQ(log.texts("Notice")[0], attempt(std::string(10000, 'x'), 1).substr(0, 8191));
}

TEST_F(DistantObject, DropsItsConnectionWhenTheServerAnnouncesAStart) {
  Server server(calls_);
  // Before the object, or it would share the object's ears.
  const Server successor(calls_, {.announces = true, .waits = true});
  CorvaneDistantObject object(kName, kProtocol, kStarted);
  EXPECT_EQ(object.send("echo:", {1}), PropertyList(1));
  EXPECT_TRUE(object.isConnected());
  server.kill();
  successor.start();
  while (object.isConnected()) {
    ASSERT_TRUE(RunLoop::current()->runUntil(RunLoop::Clock::now() + std::chrono::minutes(2)));
  }
  EXPECT_EQ(object.send("echo:", {2}), PropertyList(2));
}

TEST_F(DistantObject, WorksForAnotherUserWhoCannotHearTheStartNotification) {
  const Server server(calls_, {.peers = ipc::ServerConnection::Peers::Everybody});
  const pid_t child = fork();
  if (child == 0) {
    if (setuid(65534) != 0) {
      _exit(2);
    }
    CorvaneDistantObject object(kName, kProtocol, kStarted);
    _exit(object.send("echo:", {7}) == PropertyList(7) ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace
