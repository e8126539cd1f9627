#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "general/ipc/RemoteException.h"
#include "general/ipc/ServerConnection.h"
#include "general/ipc/ServiceFolder.h"
#include "general/ipc/ServiceSocket.h"
#include "tests/unit/general/ipc/ConnectionTest.h"
#include "tests/unit/general/ipc/VendingProcess.h"

namespace {

using foundation::Descriptor;
using foundation::PropertyList;
using ipc::Message;
using ipc::ServerConnection;
using ipctests::callFrame;
using ipctests::callOf;
using ipctests::Client;
using ipctests::Connections;
using ipctests::frameOf;
using ipctests::kServiceName;
using ipctests::kSomebody;
using ipctests::RawPeer;
using ipctests::runAs;
using ipctests::VendingProcess;

namespace fs = std::filesystem;

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

}  // namespace
