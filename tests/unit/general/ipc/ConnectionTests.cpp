#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "general/ipc/Frame.h"
#include "general/ipc/RemoteException.h"
#include "general/ipc/ServiceFolder.h"
#include "general/ipc/ServiceSocket.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/PrivateRunFolder.h"
#include "tests/unit/general/ipc/VendingProcess.h"

namespace {

using foundation::Descriptor;
using foundation::PropertyList;
using ipc::Message;
using ipc::ServerConnection;
using ipctests::callFrame;
using ipctests::callOf;
using ipctests::Client;
using ipctests::frameOf;
using ipctests::kServiceName;
using ipctests::kSomebody;
using ipctests::kSomebodyElse;
using ipctests::messageOf;
using ipctests::RawPeer;
using ipctests::runAs;
using ipctests::VendingProcess;
using namespace std::string_view_literals;

namespace fs = std::filesystem;

constexpr double kShortTimeout = 0.05;
constexpr int kConnectionsOfRoot = 128;
constexpr int kConnectionsOfAnotherUser = 16;

class Connections : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const auto reason = tests::enterPrivateRunFolder()) {
      GTEST_SKIP() << *reason;
    }
  }

  [[nodiscard]] VendingProcess vendForEverybody() const {
    return VendingProcess(*shared_, {.connection = {.peers = ServerConnection::Peers::Everybody}});
  }

  /// Whether a peer that has done nothing wrong is served.
  static bool isServed() {
    Client client;
    return client.isConnected() && client.call("echo:", {"still there"}) == PropertyList("still there");
  }

  const ipctests::SharedMemory shared_;
};

// Requests and answers.

TEST_F(Connections, CarryArgumentsThereAndResultsBack) {
  const VendingProcess server(*shared_);
  Client client;
  ASSERT_TRUE(client.isConnected());
  EXPECT_EQ(client.call("count"), PropertyList(1));
  EXPECT_EQ(client.call("add:and:", {-5, std::int64_t{1} << 40U}), PropertyList((std::int64_t{1} << 40U) - 5));
  const PropertyList value = PropertyList::dictionary(
      {{"text", "\xc3\xa4"}, {"list", PropertyList(std::vector<std::string>{"a", "b"})}, {"real", 0.5}});
  EXPECT_EQ(client.call("echo:", {value}), value);
  EXPECT_EQ(client.call("names:", {PropertyList(std::vector<std::string>{"one"})}), PropertyList(true));
  EXPECT_TRUE(client.call("nilResult").isNil());
}

TEST_F(Connections, CarryLargeResultsWhole) {
  const VendingProcess server(*shared_);
  Client client;
  constexpr int kBytes = 8'000'000;
  EXPECT_EQ(client.call("data:", {kBytes}).bytes().size(), std::size_t{kBytes});
  EXPECT_EQ(client.call("count"), PropertyList(1));
}

TEST_F(Connections, AnswerRequestsInOrderHoweverTheyArrive) {
  const VendingProcess server(*shared_);
  std::string frames;
  for (int number = 1; number <= 200; ++number) {
    frames += callFrame("echo:", {number}, number);
  }
  for (const std::size_t piece : {std::size_t{7}, std::size_t{1000}, frames.size()}) {
    RawPeer peer;
    for (std::size_t start = 0; start < frames.size(); start += piece) {
      ASSERT_TRUE(peer.send(std::string_view(frames).substr(start, piece)));
    }
    for (int number = 1; number <= 200; ++number) {
      const auto answer = peer.receive();
      ASSERT_TRUE(answer);
      EXPECT_EQ(answer->number, number);
      EXPECT_EQ(answer->result, PropertyList(number));
    }
  }
}

TEST_F(Connections, AreNotKeptWaitingByRequestsWithoutAnAnswer) {
  VendingProcess server(*shared_);
  Client client;
  client.call("poke");
  EXPECT_EQ(client.call("count"), PropertyList(2));
  server.process().suspend();
  client->setReplyTimeout(1e9);
  client->setRequestTimeout(1e9);
  client.call("poke");
  client.call("poke");
}

TEST_F(Connections, ARequestWithoutAnAnswerIsRefusedWhenNobodyTakesItNotWaitedFor) {
  VendingProcess server(*shared_);
  Client client;
  server.process().suspend();
  client->setRequestTimeout(1e9);
  std::string exception = "none";
  // Until what the system keeps for a silent peer is full.
  for (int count = 0; count < 1'000'000 && exception == "none"; ++count) {
    exception = client.exceptionOf("poke");
  }
  EXPECT_EQ(exception, ipc::kPortTimeoutException);
  EXPECT_FALSE(client->isValid());
}

// Refusals, after which the connection stays.

TEST_F(Connections, OutliveRefusedRequests) {
  const VendingProcess server(*shared_);
  RawPeer peer;
  const PropertyList text("text");
  const std::vector<Message> refused = {
      callOf("shutdownService"),
      callOf("count:"),
      callOf(""),
      callOf("count", {1}),
      callOf("echo:"),
      callOf("echo:", {1, 2}),
      callOf("add:and:", {text, 1}),
      callOf("add:and:", {std::int64_t{1} << 31U, 1}),
      callOf("add:and:", {1.0, 1}),
      callOf("add:and:", {true, 1}),
      callOf("names:", {text}),
      callOf("names:", {PropertyList(PropertyList::Array{text, 1})}),
      callOf("poke"),
  };
  ipctests::WatcherAuthenticator authenticator;
  for (std::size_t number = 0; number < refused.size(); ++number) {
    Message request = refused[number];
    request.number = static_cast<std::int64_t>(number);
    ASSERT_TRUE(peer.send(frameOf(request, authenticator)));
    const auto answer = peer.receive();
    ASSERT_TRUE(answer) << request.selector;
    EXPECT_EQ(answer->kind, Message::Kind::Exception) << request.selector;
    EXPECT_EQ(answer->number, request.number);
    EXPECT_EQ(answer->exceptionName, ipc::kInvalidArgumentException);
  }
  EXPECT_EQ(shared_->calls, 0);
  ASSERT_TRUE(peer.send(callFrame("count")));
  EXPECT_EQ(peer.receive()->result, PropertyList(1));
}

TEST_F(Connections, DoNotCarryOutACallThatIsAskedForWithoutAnAnswer) {
  const VendingProcess server(*shared_);
  ipctests::WatcherAuthenticator authenticator;
  Message request = callOf("count");
  request.kind = Message::Kind::OneWay;
  RawPeer peer;
  ASSERT_TRUE(peer.send(frameOf(request, authenticator) + callFrame("echo:", {"next"})));
  EXPECT_EQ(peer.receive()->result, PropertyList("next"));
  EXPECT_EQ(shared_->calls, 1);
}

TEST_F(Connections, TellTheCallerWhatTheTargetRaised) {
  const VendingProcess server(*shared_);
  Client client;
  EXPECT_EQ(client.exceptionOf("raise:", {"WantedException"}), "WantedException");
  EXPECT_EQ(client.exceptionOf("raiseStandard"), ipc::kGenericException);
  EXPECT_EQ(client.exceptionOf("wrongResult"), ipc::kInvalidArgumentException);
  EXPECT_EQ(client.exceptionOf("deepResult"), ipc::kInvalidArgumentException);
  EXPECT_EQ(client.call("count"), PropertyList(1));
}

TEST_F(Connections, RefuseArgumentsThatCannotBeSentAndStay) {
  const VendingProcess server(*shared_);
  Client client;
  EXPECT_EQ(client.exceptionOf("echo:", {PropertyList()}), ipc::kInvalidArgumentException);
  EXPECT_EQ(client.call("count"), PropertyList(1));
}

// Peers that cost their own connection, and nothing else.

TEST_F(Connections, EndWithWhatIsNoMessage) {
  const VendingProcess server(*shared_);
  Client other;
  EXPECT_EQ(other.call("count"), PropertyList(1));
  ipctests::WatcherAuthenticator authenticator;
  const std::string wrongKind = frameOf(messageOf(Message::Kind::Reply), authenticator);
  for (const std::string_view garbage :
       {"GET / HTTP/1.1\r\n\r\n"sv, "\xff\xff\xff\xff"sv, "\0\x01\0\x01"sv, "\0\0\0\0"sv, "\0\0\0\x07garbage"sv,
        "\0\0\0\x1d<plist><dict></dict></plist>\n"sv, std::string_view(wrongKind)}) {
    RawPeer peer;
    ASSERT_TRUE(peer.isConnected());
    ASSERT_TRUE(peer.send(garbage));
    EXPECT_EQ(peer.receiveFrame(), std::nullopt);
  }
  EXPECT_EQ(other.call("count"), PropertyList(2));
}

TEST_F(Connections, EndWithARequestBeyondTheLimitAndCarryOneAtIt) {
  constexpr std::size_t kLimit = 5000;
  const VendingProcess server(*shared_, {.connection = {.maximumRequestSize = kLimit}});
  const auto contentSize = [](std::size_t padding) {
    return callFrame("echo:", {std::string(padding, 'x')}).size() - ipc::kFrameHeaderSize;
  };
  std::size_t padding = kLimit - contentSize(1000) + 1000;
  ASSERT_EQ(contentSize(padding), kLimit);
  Client client;
  EXPECT_EQ(client.call("echo:", {std::string(padding, 'x')}).text().size(), padding);
  EXPECT_EQ(client.exceptionOf("echo:", {std::string(padding + 1, 'x')}), ipc::kInvalidReceivePortException);
  EXPECT_TRUE(isServed());
}

TEST_F(Connections, OfPeersThatSayNothingOrHalfOfSomethingKeepNobodyWaiting) {
  const VendingProcess server(*shared_);
  const std::string frame = callFrame("count");
  std::vector<RawPeer> peers;
  for (std::size_t length = 0; length < 60; ++length) {
    peers.emplace_back();
    ASSERT_TRUE(peers.back().send(std::string_view(frame).substr(0, length)));
  }
  EXPECT_TRUE(isServed());
  EXPECT_EQ(shared_->calls, 1);
  ASSERT_TRUE(peers.back().send(std::string_view(frame).substr(59)));
  EXPECT_EQ(peers.back().receive()->result, PropertyList(2));
}

TEST_F(Connections, OutliveNoAuthenticationThatIsWrongOrMissing) {
  const VendingProcess server(*shared_);
  Client other;
  class NoAuthenticator : public ipctests::WrongAuthenticator {
    std::vector<std::byte> authenticationDataForComponents(std::span<const std::byte> /*components*/) override {
      return {};
    }
  };
  // What a server shows is not what a server expects.
  ipc::VRKConnectionAuthenticator serversOwn;
  ipctests::WrongAuthenticator wrong;
  NoAuthenticator none;
  for (ipc::ConnectionDelegate* delegate : std::vector<ipc::ConnectionDelegate*>{&serversOwn, &wrong, &none}) {
    RawPeer peer;
    ASSERT_TRUE(peer.send(frameOf(callOf("count", {}, 17), *delegate) + callFrame("count")));
    const auto answer = peer.receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->kind, Message::Kind::Exception);
    EXPECT_EQ(answer->number, 17);
    EXPECT_EQ(answer->exceptionName, ipc::kFailedAuthenticationException);
    EXPECT_EQ(peer.receiveFrame(), std::nullopt);
  }
  EXPECT_EQ(shared_->calls, 0);
  EXPECT_EQ(other.call("count"), PropertyList(1));
}

TEST_F(Connections, AuthenticateEveryMessageNotOnlyTheFirst) {
  const VendingProcess server(*shared_);
  ipctests::WrongAuthenticator wrong;
  RawPeer peer;
  ASSERT_TRUE(peer.send(callFrame("count") + frameOf(callOf("count"), wrong)));
  EXPECT_EQ(peer.receive()->result, PropertyList(1));
  EXPECT_EQ(peer.receive()->exceptionName, ipc::kFailedAuthenticationException);
  EXPECT_TRUE(peer.awaitEnd());
  EXPECT_EQ(shared_->calls, 1);
}

TEST_F(Connections, OfAPeerThatNeverReadsItsAnswersAreDropped) {
  const VendingProcess server(*shared_);
  Client other;
  RawPeer peer;
  for (int count = 0; count < 100; ++count) {
    if (!peer.send(callFrame("data:", {60000}))) {
      break;
    }
  }
  EXPECT_EQ(other.call("count"), PropertyList(1));
  ASSERT_TRUE(peer.awaitHangUp());
  int answers = 0;
  while (peer.receiveFrame()) {
    ++answers;
  }
  EXPECT_GT(answers, 0);
  EXPECT_LT(answers, 100);
  EXPECT_TRUE(isServed());
}

TEST_F(Connections, OfAPeerThatNeverReadsItsNotificationsAreDropped) {
  const VendingProcess server(*shared_);
  RawPeer deaf;
  ipctests::WatcherAuthenticator authenticator;
  ASSERT_TRUE(deaf.send(frameOf(messageOf(Message::Kind::Observe), authenticator) + callFrame("count")));
  ASSERT_TRUE(deaf.receive());
  Client other;
  other->observeNotifications();
  constexpr int kNotifications = 100;
  // What comes meanwhile is taken in with the answer.
  for (int count = 0; count < kNotifications; ++count) {
    other.call("notify:size:", {1, 50000});
  }
  EXPECT_EQ(other->takeNotifications().size(), std::size_t{kNotifications});
  int heard = 0;
  while (deaf.receiveFrame()) {
    ++heard;
  }
  EXPECT_GT(heard, 0);
  EXPECT_LT(heard, kNotifications);
}

TEST_F(Connections, OfPeersThatLeaveInTheMiddleOfAnAnswerAreForgotten) {
  const VendingProcess server(*shared_);
  for (int count = 0; count < 2 * kConnectionsOfRoot; ++count) {
    RawPeer peer;
    ASSERT_TRUE(peer.isConnected());
    ASSERT_TRUE(peer.send(callFrame("data:", {1'000'000})));
    if (count % 2 == 0) {
      ASSERT_TRUE(ipctests::await([&] { return peer.hasAnswer(); }));
    }
  }
  EXPECT_TRUE(isServed());
}

// Limits.

TEST_F(Connections, OfAnotherUserAreLimitedForThatUserAlone) {
  const VendingProcess server = vendForEverybody();
  const ipctests::SharedMemory held;
  const auto hold = [&held] {
    std::vector<RawPeer> peers;
    for (int count = 0; count < kConnectionsOfAnotherUser; ++count) {
      peers.emplace_back();
      if (!peers.back().send(callFrame("count")) || !peers.back().receive()) {
        return 1;
      }
    }
    RawPeer oneMore;
    if (!oneMore.isConnected() || !oneMore.awaitEnd()) {
      return 2;
    }
    ++held->inside;
    // The others stay until the process is killed.
    while (pause() != 0) {
    }
    return 0;
  };
  ipctests::ForkedProcess holder([&] { return setuid(kSomebody) == 0 ? hold() : 99; });
  ASSERT_TRUE(ipctests::await([&] { return held->inside == 1; }));
  EXPECT_TRUE(isServed());
  EXPECT_EQ(runAs(kSomebodyElse, [] { return isServed() ? 0 : 1; }), 0);
  holder.kill();
  EXPECT_EQ(runAs(kSomebody,
                  [] {
                    return ipctests::await([] {
                      Client client;
                      return client.isConnected() && client.exceptionOf("count") == "none";
                    })
                               ? 0
                               : 1;
                  }),
            0);
}

TEST_F(Connections, OfRootBeyondTheLimitAreSentAwayWhereEverybodyMayConnect) {
  const VendingProcess server = vendForEverybody();
  std::vector<RawPeer> peers(kConnectionsOfRoot);
  for (RawPeer& peer : peers) {
    ASSERT_TRUE(peer.send(callFrame("count")));
    ASSERT_TRUE(peer.receive());
  }
  RawPeer oneMore;
  EXPECT_TRUE(oneMore.awaitEnd());
  EXPECT_EQ(runAs(kSomebody, [] { return isServed() ? 0 : 1; }), 0);
}

TEST_F(Connections, OfRootBeyondTheLimitWaitWhereOnlyRootMayConnect) {
  const VendingProcess server(*shared_);
  std::vector<RawPeer> peers(kConnectionsOfRoot);
  for (RawPeer& peer : peers) {
    ASSERT_TRUE(peer.send(callFrame("count")));
    ASSERT_TRUE(peer.receive());
  }
  RawPeer oneMore;
  ASSERT_TRUE(oneMore.send(callFrame("echo:", {"later"})));
  ASSERT_TRUE(peers[1].send(callFrame("count")));
  ASSERT_TRUE(peers[1].receive());
  EXPECT_FALSE(oneMore.hasAnswer());
  peers[0].hangUp();
  EXPECT_EQ(oneMore.receive()->result, PropertyList("later"));
}

TEST_F(Connections, ThatFindNoDescriptorWaitForOneAndBurnNoTime) {
  constexpr std::size_t kDescriptors = 5;
  const VendingProcess server(*shared_, {.mostDescriptors = kDescriptors});
  std::vector<RawPeer> peers(kDescriptors);
  for (RawPeer& peer : peers) {
    ASSERT_TRUE(peer.send(callFrame("count")));
    ASSERT_EQ(peer.receive()->kind, Message::Kind::Reply);
  }
  RawPeer waiting;
  ASSERT_TRUE(waiting.send(callFrame("echo:", {"later"})));
  // Those who are in are served on, and the server does not turn its loop for the one that is not.
  ASSERT_TRUE(peers[1].send(callFrame("count")));
  ASSERT_EQ(peers[1].receive()->kind, Message::Kind::Reply);
  const int before = shared_->turns;
  usleep(200'000);
  EXPECT_LT(shared_->turns - before, 100);
  EXPECT_FALSE(waiting.hasAnswer());
  peers[0].hangUp();
  EXPECT_EQ(waiting.receive()->result, PropertyList("later"));
}

// A target that turns the run loop, or ends the connection.

TEST_F(Connections, CarryOutOneRequestAtATimeWhileATargetTurnsTheLoop) {
  const VendingProcess server(*shared_);
  RawPeer first;
  RawPeer second;
  RawPeer leaving;
  ASSERT_TRUE(second.send(callFrame("count")));
  ASSERT_TRUE(second.receive());
  ASSERT_TRUE(first.send(callFrame("turnUntilReleased") + callFrame("count", {}, 2)));
  ASSERT_TRUE(ipctests::await([&] { return shared_->inside > 0; }));
  ASSERT_TRUE(second.send(callFrame("count") + callFrame("count", {}, 2)));
  ASSERT_TRUE(leaving.send(callFrame("count")));
  leaving.hangUp();
  RawPeer garbage;
  ASSERT_TRUE(garbage.send("\xff\xff\xff\xff garbage"));
  RawPeer late;
  ASSERT_TRUE(late.send(callFrame("count")));
  const int inside = shared_->inside;
  ASSERT_TRUE(ipctests::await([&] { return shared_->inside > inside + 20; }));
  EXPECT_EQ(shared_->calls, 1);
  EXPECT_FALSE(second.hasAnswer());
  shared_->release = true;
  EXPECT_EQ(first.receive()->result, PropertyList(1)) << "none was carried out meanwhile";
  EXPECT_TRUE(first.receive());
  EXPECT_EQ(second.receive()->number, 1);
  EXPECT_EQ(second.receive()->number, 2);
  EXPECT_TRUE(late.receive());
  EXPECT_TRUE(garbage.awaitEnd());
  EXPECT_TRUE(isServed());
}

TEST_F(Connections, ReadNothingWhileATargetTurnsTheLoop) {
  const VendingProcess server(*shared_);
  RawPeer first;
  RawPeer talkative;
  ASSERT_TRUE(talkative.send(callFrame("count")));
  ASSERT_TRUE(talkative.receive());
  ASSERT_TRUE(first.send(callFrame("turnUntilReleased")));
  ASSERT_TRUE(ipctests::await([&] { return shared_->inside > 0; }));
  EXPECT_GT(talkative.sendUntilRefused(callFrame("count")), 0U);
  const int inside = shared_->inside;
  ASSERT_TRUE(ipctests::await([&] { return shared_->inside > inside + 20; }));
  EXPECT_FALSE(talkative.canSend());
  shared_->release = true;
  EXPECT_TRUE(first.receive());
  EXPECT_TRUE(talkative.receive());
}

TEST_F(Connections, EndAllWhenATargetEndsTheConnection) {
  VendingProcess server(*shared_);
  RawPeer other;
  ASSERT_TRUE(other.send(callFrame("count")));
  ASSERT_TRUE(other.receive());
  RawPeer peer;
  ASSERT_TRUE(peer.send(callFrame("endConnection") + callFrame("count")));
  EXPECT_TRUE(peer.awaitEnd());
  EXPECT_TRUE(other.awaitEnd());
  EXPECT_FALSE(Client().isConnected());
  EXPECT_FALSE(fs::exists(*ipc::socketPathOfService(kServiceName)));
  EXPECT_EQ(shared_->calls, 1);
}

// Names.

TEST_F(Connections, UnderANameThatALivingProcessHasAreRefused) {
  const VendingProcess server(*shared_);
  ASSERT_TRUE(server.isVending());
  const VendingProcess second(*shared_);
  EXPECT_FALSE(second.isVending());
  const VendingProcess third(*shared_, {.name = "another.name"});
  EXPECT_TRUE(third.isVending());
  EXPECT_TRUE(isServed());
}

TEST_F(Connections, TakeOverTheNameOfAKilledProcess) {
  VendingProcess server(*shared_);
  VendingProcess other(*shared_, {.name = "another.name"});
  server.process().kill();
  other.process().kill();
  EXPECT_TRUE(fs::exists(*ipc::socketPathOfService(kServiceName)));
  EXPECT_FALSE(Client().isConnected());
  const VendingProcess successor(*shared_);
  EXPECT_TRUE(successor.isVending());
  EXPECT_TRUE(isServed());
  EXPECT_FALSE(fs::exists(*ipc::socketPathOfService("another.name"))) << "swept";
}

TEST_F(Connections, AreLookedUpInVainUnderOtherNames) {
  const VendingProcess server(*shared_);
  EXPECT_FALSE(Client("com.corvane.installer.other").isConnected());
  EXPECT_FALSE(Client("").isConnected());
  EXPECT_FALSE(Client("../com.corvane.installer.test").isConnected());
  EXPECT_FALSE(Client(".lock").isConnected());
}

TEST_F(Connections, AreVendedOnlyWithDelegateAndObject) {
  ServerConnection connection(ServerConnection::Options{});
  EXPECT_FALSE(connection.registerName(kServiceName));
  connection.setDelegate(std::make_shared<ipc::VRKConnectionAuthenticator>());
  EXPECT_FALSE(connection.registerName(kServiceName));
  connection.setRootObject(std::make_shared<const ipc::ProtocolChecker>(
      [](std::string_view, std::span<const PropertyList>) { return PropertyList(); }, ipctests::kTestProtocol));
  EXPECT_FALSE(connection.registerName("no/name"));
  EXPECT_TRUE(connection.registerName(kServiceName));
  EXPECT_FALSE(connection.registerName("a.second.name"));
}

// Other users.

TEST_F(Connections, ForEverybodyCanBeReachedByAnotherUser) {
  const VendingProcess server = vendForEverybody();
  EXPECT_EQ(runAs(kSomebody, [] { return isServed() ? 0 : 1; }), 0);
}

TEST_F(Connections, ForRootAloneCannotBeReachedByAnotherUser) {
  const VendingProcess server(*shared_);
  EXPECT_EQ(runAs(kSomebody, [] { return Client().isConnected() ? 1 : 0; }), 0);
  // Not even where the socket could be opened.
  ASSERT_EQ(chmod(ipc::socketPathOfService(kServiceName)->c_str(), 0666), 0);
  const auto ask = [] {
    RawPeer peer;
    if (!peer.isConnected()) {
      return 1;
    }
    peer.send(callFrame("count"));
    return peer.receiveFrame() ? 2 : 0;
  };
  EXPECT_EQ(runAs(kSomebody, ask), 0);
  EXPECT_EQ(shared_->calls, 0);
  EXPECT_TRUE(isServed());
}

TEST_F(Connections, CannotBeVendedByAnotherUser) {
  { const VendingProcess server(*shared_); }
  const ipctests::SharedMemory shared;
  EXPECT_EQ(runAs(kSomebody, [&] { return VendingProcess(*shared).isVending() ? 1 : 0; }), 0);
}

TEST_F(Connections, AreNotMadeToAServerThatIsNotRoots) {
  ASSERT_TRUE(ipc::ServiceFolderLock::acquire());
  const std::string folder(ipc::kServiceFolder);
  // As if somebody had found a way to put a socket there.
  ASSERT_EQ(chown(folder.c_str(), kSomebody, 0), 0);
  const ipctests::SharedMemory shared;
  const std::string path = *ipc::socketPathOfService(kServiceName);
  ipctests::ForkedProcess impostor([&] {
    if (setuid(kSomebody) != 0) {
      return 1;
    }
    const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (bind(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(socket.number(), 5) != 0) {
      return 2;
    }
    ++shared->inside;
    while (pause() != 0) {
    }
    return 0;
  });
  ASSERT_TRUE(ipctests::await([&] { return shared->inside == 1; }));
  EXPECT_TRUE(ipc::connectTo(path, true).isOpen());
  EXPECT_FALSE(Client().isConnected());
}

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
