#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "general/ipc/ClientConnection.h"
#include "general/ipc/Frame.h"
#include "general/ipc/RemoteException.h"
#include "general/ipc/ServiceSocket.h"
#include "tests/unit/general/ipc/ConnectionTest.h"
#include "tests/unit/general/ipc/VendingProcess.h"

namespace {

using foundation::Descriptor;
using foundation::PropertyList;
using ipc::Message;
using ipctests::callFrame;
using ipctests::callOf;
using ipctests::Client;
using ipctests::Connections;
using ipctests::frameOf;
using ipctests::kServiceName;
using ipctests::RawPeer;
using ipctests::VendingProcess;

constexpr double kShortTimeout = 0.05;

// What a client makes of its server.

TEST_F(Connections, TimeOutWhenNoAnswerComes) {
  VendingProcess server(*shared_);
  Client client;
  client->setReplyTimeout(kShortTimeout);
  server.process().suspend();
  EXPECT_EQ(client.exceptionOf("count"), ipc::kPortTimeoutException);
  EXPECT_FALSE(client->isValid());
  EXPECT_EQ(client.exceptionOf("count"), ipc::kInvalidSendPortException);
}

TEST_F(Connections, TimeOutWhenTheRequestIsNotTaken) {
  VendingProcess server(*shared_);
  Client client;
  client->setRequestTimeout(kShortTimeout);
  server.process().suspend();
  EXPECT_EQ(client.exceptionOf("echo:", {std::string(8'000'000, 'x')}), ipc::kPortTimeoutException);
  EXPECT_FALSE(client->isValid());
}

TEST_F(Connections, NoticeADeadServerAtTheNextUse) {
  VendingProcess server(*shared_);
  Client client;
  Client watcher;
  EXPECT_EQ(client.call("count"), PropertyList(1));
  EXPECT_TRUE(client->isValid());
  EXPECT_TRUE(watcher->takeNotifications().empty());
  server.process().kill();
  EXPECT_FALSE(client->isValid());
  EXPECT_EQ(client.exceptionOf("count"), ipc::kInvalidSendPortException);
  EXPECT_THROW(static_cast<void>(watcher->takeNotifications()), ipc::RemoteException);
  EXPECT_THROW(static_cast<void>(watcher->takeNotifications()), ipc::RemoteException);
}

TEST_F(Connections, WithoutADelegateFail) {
  const VendingProcess server(*shared_);
  const auto connection = ipc::ClientConnection::connectionWithRegisteredName(kServiceName);
  ASSERT_TRUE(connection);
  try {
    connection->invoke(*ipctests::kTestProtocol.operation("count"), {});
    ADD_FAILURE() << "nothing was thrown";
  } catch (const ipc::RemoteException& exception) {
    EXPECT_EQ(exception.name(), ipc::kFailedAuthenticationException);
  }
}

TEST_F(Connections, BringNotificationsToThoseWhoAskedForThem) {
  const VendingProcess server(*shared_);
  Client watcher;
  Client other;
  watcher->observeNotifications();
  watcher->observeNotifications();
  watcher.call("count");
  other.call("notify:size:", {3, 10});
  // Sent before the answer that has come.
  const auto heard = watcher->takeNotifications();
  ASSERT_EQ(heard.size(), 3U);
  EXPECT_EQ(heard[0].name, "test.notification");
  EXPECT_EQ(heard[0].object, "object");
  for (int number = 1; number <= 3; ++number) {
    EXPECT_EQ(heard[static_cast<std::size_t>(number - 1)].userInfo["n"], PropertyList(number));
  }
  EXPECT_TRUE(watcher->takeNotifications().empty());
  EXPECT_TRUE(other->takeNotifications().empty());
}

TEST_F(Connections, BringWhatWasSentBeforeTheServerDied) {
  VendingProcess server(*shared_);
  Client watcher;
  watcher->observeNotifications();
  watcher.call("count");
  Client().call("notify:size:", {5, 10});
  server.process().kill();
  EXPECT_EQ(watcher->takeNotifications().size(), 5U);
  EXPECT_THROW(static_cast<void>(watcher->takeNotifications()), ipc::RemoteException);
}

/// A server of root that answers one connection's requests with bytes of the test's choice.
class FakeServer {
 public:
  explicit FakeServer(const std::vector<std::string>& answers) {
    auto lock = ipc::ServiceFolderLock::acquire();
    const Descriptor listener = ipc::listenAt(*ipc::socketPathOfService(kServiceName), ipc::kModeForRoot, *lock);
    // The child must not inherit it.
    lock.reset();
    fcntl(listener.number(), F_SETFL, 0);
    process_ = std::make_unique<ipctests::ForkedProcess>([&] {
      RawPeer peer(Descriptor(accept4(listener.number(), nullptr, nullptr, SOCK_CLOEXEC)));
      for (const std::string& answer : answers) {
        if (!peer.receiveFrame() || !peer.send(answer)) {
          return 1;
        }
      }
      return 0;
    });
  }

 private:
  std::unique_ptr<ipctests::ForkedProcess> process_;
};

std::string answerFrame(const Message& message) {
  ipc::VRKConnectionAuthenticator authenticator;
  return frameOf(message, authenticator);
}

Message replyOf(std::int64_t number, PropertyList result) {
  Message message;
  message.kind = Message::Kind::Reply;
  message.number = number;
  message.result = std::move(result);
  return message;
}

TEST_F(Connections, RefuseAnAnswerThatIsNone) {
  ipctests::WrongAuthenticator wrong;
  struct Case {
    std::string answer;
    std::string_view exception;
  };
  const std::vector<Case> cases = {
      {ipc::framed("garbage"), ipc::kPortReceiveException},
      {std::string("\0\0\0\0", 4), ipc::kPortReceiveException},
      {"\xff\xff\xff\xff", ipc::kPortReceiveException},
      {answerFrame(callOf("count")), ipc::kPortReceiveException},
      {frameOf(replyOf(1, 5), wrong), ipc::kFailedAuthenticationException},
      {callFrame("count"), ipc::kFailedAuthenticationException},
      {answerFrame(replyOf(1, 5)).substr(0, 20), ipc::kInvalidReceivePortException},
      {"", ipc::kInvalidReceivePortException},
  };
  for (const Case& one : cases) {
    const FakeServer server({one.answer});
    Client client;
    ASSERT_TRUE(client.isConnected());
    EXPECT_EQ(client.exceptionOf("count"), one.exception);
    EXPECT_FALSE(client->isValid());
    EXPECT_EQ(client->descriptor(), -1);
  }
}

TEST_F(Connections, RefuseAResultOfAnotherTypeAndStay) {
  const FakeServer server({answerFrame(replyOf(1, "five")), answerFrame(replyOf(2, 5))});
  Client client;
  EXPECT_EQ(client.exceptionOf("count"), ipc::kInvalidArgumentException);
  EXPECT_EQ(client.call("count"), PropertyList(5));
}

TEST_F(Connections, PassByAnAnswerToSomethingElse) {
  const FakeServer server({answerFrame(replyOf(0, 3)) + answerFrame(replyOf(1, 5))});
  Client client;
  EXPECT_EQ(client.call("count"), PropertyList(5));
}

TEST_F(Connections, BringANotificationThatCameTogetherWithAnAnswer) {
  Message notification;
  notification.kind = Message::Kind::Notification;
  notification.notification = {"name", "object", {}};
  const FakeServer server({answerFrame(replyOf(1, 5)) + answerFrame(notification)});
  Client client;
  EXPECT_EQ(client.call("count"), PropertyList(5));
  EXPECT_EQ(client->takeNotifications().size(), 1U);
}

TEST_F(Connections, TellOfARequestWithoutAnAnswerThatWasNotAuthentic) {
  Message refusal;
  refusal.kind = Message::Kind::Exception;
  refusal.exceptionName = ipc::kFailedAuthenticationException;
  refusal.exceptionReason = "not authentic";
  const FakeServer server({answerFrame(refusal)});
  Client client;
  client.call("poke");
  // The server has gone before the next request, but not without a word.
  pollfd watched{client->descriptor(), 0, 0};
  ASSERT_GT(poll(&watched, 1, 120'000), 0);
  EXPECT_EQ(client.exceptionOf("count"), ipc::kFailedAuthenticationException);
  EXPECT_FALSE(client->isValid());
}

TEST_F(Connections, DoNotBelieveANotificationThatIsNotAuthentic) {
  Message message;
  message.kind = Message::Kind::Notification;
  message.notification = {"name", "object", {}};
  ipctests::WrongAuthenticator wrong;
  const FakeServer server({answerFrame(message) + frameOf(message, wrong) + answerFrame(message)});
  Client client;
  client->observeNotifications();
  ASSERT_TRUE(ipctests::await([&] { return !client->isValid(); }));
  EXPECT_EQ(client->takeNotifications().size(), 1U);
  try {
    static_cast<void>(client->takeNotifications());
    ADD_FAILURE() << "nothing was thrown";
  } catch (const ipc::RemoteException& exception) {
    EXPECT_EQ(exception.name(), ipc::kFailedAuthenticationException);
  }
}

}  // namespace
