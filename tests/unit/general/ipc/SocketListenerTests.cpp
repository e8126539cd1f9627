#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "general/foundation/Descriptor.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/Frame.h"
#include "general/ipc/RemoteException.h"
#include "general/ipc/SocketListener.h"
#include "general/ipc/SocketPrimitives.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/unit/general/ipc/ConnectionTest.h"
#include "tests/unit/general/ipc/VendingProcess.h"

namespace {

using foundation::Descriptor;
using foundation::PropertyList;
using foundation::RunLoop;
using ipc::Message;
using ipc::SocketListener;
using ipctests::callFrame;
using ipctests::callOf;
using ipctests::Client;
using ipctests::Connections;
using ipctests::frameOf;
using ipctests::kSomebody;
using ipctests::kSomebodyElse;
using ipctests::messageOf;
using ipctests::RawPeer;
using ipctests::runAs;
using ipctests::VendingProcess;
using namespace std::string_view_literals;

constexpr int kConnectionsOfRoot = 128;
constexpr int kConnectionsOfAnotherUser = 16;

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

TEST_F(Connections, OfOneProgramGiveWayToAnotherProgramOfTheSameUser) {
  const VendingProcess server = vendForEverybody();
  const ipctests::SharedMemory held;
  const auto hold = [&held] {
    std::vector<RawPeer> peers(kConnectionsOfAnotherUser);
    for (RawPeer& peer : peers) {
      if (!peer.send(callFrame("count")) || !peer.receive()) {
        return 1;
      }
    }
    // All but the second ask once more, so that one is the longest silent.
    for (std::size_t i = 0; i < peers.size(); ++i) {
      if (i != 1 && (!peers[i].send(callFrame("count")) || !peers[i].receive())) {
        return 2;
      }
    }
    ++held->inside;
    return peers[1].awaitEnd() && peers[0].send(callFrame("count")) && peers[0].receive() ? 0 : 3;
  };
  ipctests::ForkedProcess holder([&] { return setuid(kSomebody) == 0 ? hold() : 99; });
  ASSERT_TRUE(ipctests::await([&] { return held->inside == 1; }));
  EXPECT_EQ(runAs(kSomebody, [] { return isServed() ? 0 : 1; }), 0);
  EXPECT_EQ(holder.wait(), 0);
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

// The listener by itself, on the run loop of the test.

class Listener : public ::testing::Test {
 protected:
  void listen(const std::function<void(SocketListener::PeerId, const std::string&)>& handler) {
    SocketListener::Handlers handlers{handler, [this](SocketListener::PeerId) { ++gone_; }};
    Descriptor socket = ipc::primitives::makeSocket();
    const sockaddr_un address = addressInBox();
    ASSERT_EQ(bind(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(socket.number(), SOMAXCONN), 0);
    listener_ = std::make_unique<SocketListener>(std::move(socket), SocketListener::Peers::Everybody,
                                                 SocketListener::Limits{}, std::move(handlers));
  }

  [[nodiscard]] RawPeer connect() const {
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = addressInBox();
    EXPECT_EQ(::connect(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return RawPeer(std::move(socket));
  }

  void turnUntil(const std::function<bool()>& condition) {
    const auto limit = RunLoop::Clock::now() + std::chrono::minutes(1);
    while (!condition()) {
      ASSERT_TRUE(loop_->runUntil(limit));
      ASSERT_LT(RunLoop::Clock::now(), limit);
    }
  }

  [[nodiscard]] sockaddr_un addressInBox() const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = box_.path("socket");
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
  }

  tests::TemporaryDirectory box_;
  const std::shared_ptr<RunLoop> loop_ = RunLoop::current();
  std::unique_ptr<SocketListener> listener_;
  std::vector<std::string> heard_;
  int gone_ = 0;
};

TEST_F(Listener, HandsOverTheFramesOfAPeerInTheirOrder) {
  listen([this](SocketListener::PeerId, const std::string& content) { heard_.push_back(content); });
  RawPeer peer = connect();
  ASSERT_TRUE(peer.send(ipc::framed("first") + ipc::framed("second")));
  turnUntil([this] { return heard_.size() == 2; });
  EXPECT_EQ(heard_, (std::vector<std::string>{"first", "second"}));
}

TEST_F(Listener, TellsOnceThatAPeerHasGone) {
  listen([](SocketListener::PeerId, const std::string&) {});
  RawPeer peer = connect();
  peer.hangUp();
  turnUntil([this] { return gone_ > 0; });
  loop_->runUntil(RunLoop::Clock::now());
  EXPECT_EQ(gone_, 1);
}

TEST_F(Listener, SendsWhatIsQueuedBeforeItCloses) {
  listen([this](SocketListener::PeerId peer, const std::string& content) {
    listener_->send(peer, "answer to " + content);
    listener_->closeAfterSending(peer);
    listener_->send(peer, "nothing more");
  });
  RawPeer peer = connect();
  ASSERT_TRUE(peer.send(ipc::framed("question") + ipc::framed("never read")));
  turnUntil([this] { return gone_ == 1; });
  EXPECT_EQ(peer.receiveFrame(), "answer to question");
  EXPECT_EQ(peer.receiveFrame(), std::nullopt);
}

TEST_F(Listener, ReadsNothingWhileItIsHeld) {
  listen([this](SocketListener::PeerId, const std::string& content) { heard_.push_back(content); });
  RawPeer peer = connect();
  ASSERT_TRUE(peer.send(ipc::framed("first")));
  turnUntil([this] { return heard_.size() == 1; });
  listener_->hold();
  ASSERT_TRUE(peer.send(ipc::framed("second")));
  loop_->runUntil(RunLoop::Clock::now());
  loop_->runUntil(RunLoop::Clock::now());
  EXPECT_EQ(heard_.size(), 1U);
  listener_->resume();
  turnUntil([this] { return heard_.size() == 2; });
}

TEST_F(Listener, IsNotServedAnyMoreByTheLoopThatItsHandlerTurnsAfterItsEnd) {
  listen([this](SocketListener::PeerId, const std::string& content) {
    heard_.push_back(content);
    listener_.reset();
    EXPECT_FALSE(loop_->runUntil(RunLoop::Clock::now())) << "the listener left something in the loop";
  });
  RawPeer peer = connect();
  ASSERT_TRUE(peer.send(ipc::framed("first") + ipc::framed("second")));
  turnUntil([this] { return listener_ == nullptr; });
  EXPECT_EQ(heard_, (std::vector<std::string>{"first"}));
  EXPECT_EQ(gone_, 0);
  EXPECT_TRUE(peer.awaitEnd());
}

}  // namespace
