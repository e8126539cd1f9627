#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "general/foundation/Descriptor.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/Caller.h"
#include "general/ipc/Frame.h"

namespace ipc {

/// Serves those who connect to a listening socket, on the run loop of the thread that made the object, where all of it
/// belongs. It never waits for a peer: what a peer sends is read as it comes and handed on frame by frame; what a peer
/// does not read is kept up to a limit (back-pressure). A peer that goes beyond a limit loses its connection, and
/// nobody else anything. When the process has no descriptor left, who connects waits a moment for one.
class SocketListener {
 public:
  enum class Peers { Everybody, RootOnly };
  using PeerId = std::uint64_t;

  struct Limits {
    std::size_t frameSize = std::size_t{64} * 1024;       ///< content of one frame that is received
    std::size_t unreadOutput = std::size_t{1024} * 1024;  ///< what may wait for a peer when it is sent one frame more
    // Connections at the same time. Where only root may connect, who comes on top waits. Elsewhere he is sent away,
    // unless a program of fewer connections comes where another one has most of the places: that one loses what it used
    // least.
    std::size_t connectionsOfRoot = 128;
    std::size_t connectionsOfAnotherUser = 16;  ///< of each
    std::size_t connectionsOfOthers = 64;       ///< of all users but root together
  };
  struct Handlers {
    /// One frame of a peer. May send, close, turn the run loop and end the listener.
    std::function<void(PeerId, const std::string& content)> frame;
    /// The peer has gone, or was sent away.
    std::function<void(PeerId)> closed;
  };

  SocketListener(foundation::Descriptor listener, Peers peers, const Limits& limits, Handlers handlers);
  ~SocketListener();  ///< closes every connection; handlers are not called any more
  SocketListener(const SocketListener&) = delete;
  SocketListener& operator=(const SocketListener&) = delete;

  /// Queues one frame for a peer and sends what the peer takes now. Peers that have gone are ignored.
  void send(PeerId peer, std::string_view content);
  /// Closes the connection once what is queued for the peer has been sent; nothing more is read from it.
  void closeAfterSending(PeerId peer);
  /// Who a peer is; nothing once it has gone.
  [[nodiscard]] std::optional<Caller> caller(PeerId peer) const;
  /// Whether nobody could be let in for a while because the process has no descriptor left, and somebody still waits.
  [[nodiscard]] bool isStarved() const { return pauses_ >= kPausesOfTheStarved; }
  /// For a handler that turns the run loop, before and after: meanwhile nothing is read, so that no other frame comes.
  void hold() { held_ = true; }
  void resume();

 private:
  // About two seconds.
  static constexpr int kPausesOfTheStarved = 4;

  struct Peer {
    Peer(foundation::Descriptor connection, Caller peer, std::size_t frameSize)
        : socket(std::move(connection)), caller(peer), reader(frameSize) {}
    foundation::Descriptor socket;
    Caller caller;
    FrameReader reader;
    std::string output;
    foundation::RunLoop::Source readable;
    foundation::RunLoop::Source writable;
    bool leaving = false;
    std::uint64_t lastHeard = 0;  ///< grows with each frame of any peer; 0: never
  };

  void listen();
  void acceptPeers();
  void pauseAccepting();
  [[nodiscard]] bool isFull() const;
  void pauseUntilSomebodyLeaves();
  void admit(foundation::Descriptor connection);
  /// Whether there is room for one more of this user; makes some where that is fair.
  [[nodiscard]] bool mayEnter(const Caller& caller);
  [[nodiscard]] std::optional<PeerId> peerToLeaveFor(const Caller& caller) const;
  void receive(PeerId id);
  void handOverFrames(PeerId id);
  void putAside(PeerId id, Peer& peer);
  void watch(PeerId id, Peer& peer);
  void flush(PeerId id);
  void waitUntilWritable(PeerId id);
  void close(PeerId id);
  [[nodiscard]] std::shared_ptr<Peer> find(PeerId id) const;

  const std::shared_ptr<const bool> life_ = std::make_shared<const bool>(true);
  std::shared_ptr<foundation::RunLoop> loop_ = foundation::RunLoop::current();
  foundation::Descriptor listener_;
  Peers peers_;
  Limits limits_;
  Handlers handlers_;
  foundation::RunLoop::Source accepting_;
  foundation::RunLoop::Source pause_;
  int pauses_ = 0;  // in a row
  bool waitingForRoom_ = false;
  bool held_ = false;
  std::vector<PeerId> putAside_;  // who had something to say meanwhile
  PeerId lastPeer_ = 0;
  std::uint64_t frames_ = 0;  // of all peers so far
  // Shared with the handler that serves a peer, which may close it.
  std::map<PeerId, std::shared_ptr<Peer>> connected_;
};

}  // namespace ipc
