#include "general/ipc/SocketListener.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "general/ipc/SocketErrors.h"
#include "general/ipc/SocketPrimitives.h"

namespace ipc {

using foundation::Descriptor;
using foundation::RunLoop;

namespace {

// A crowd at the door leaves the loop's other sources their turns.
constexpr std::size_t kAcceptedAtOnce = 32;
constexpr std::size_t kReadAtOnce = std::size_t{64} * 1024;

}  // namespace

SocketListener::SocketListener(Descriptor listener, Peers peers, const Limits& limits, Handlers handlers)
    : listener_(std::move(listener)), peers_(peers), limits_(limits), handlers_(std::move(handlers)) {
  listen();
}

SocketListener::~SocketListener() {
  // A handler that ends this object holds its peer for a moment longer.
  for (const auto& [id, peer] : connected_) {
    peer->readable.reset();
    peer->writable.reset();
  }
}

void SocketListener::listen() {
  accepting_ = loop_->addDescriptor(listener_.number(), RunLoop::Interest::Readable, [this] { acceptPeers(); });
}

void SocketListener::acceptPeers() {
  for (std::size_t accepted = 0; accepted < kAcceptedAtOnce; ++accepted) {
    if (isFull()) {
      pauseUntilSomebodyLeaves();
      return;
    }
    Descriptor connection = primitives::acceptFrom(listener_.number());
    if (connection.isOpen()) {
      pauses_ = 0;
      admit(std::move(connection));
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      pauses_ = 0;
      return;
    } else if (!concernsOneConnection(errno)) {
      pauseAccepting();
      return;
    }
  }
}

bool SocketListener::isFull() const {
  return peers_ == Peers::RootOnly && connected_.size() >= limits_.connectionsOfRoot;
}

void SocketListener::pauseUntilSomebodyLeaves() {
  accepting_.reset();
  waitingForRoom_ = true;
}

void SocketListener::pauseAccepting() {
  ++pauses_;
  accepting_.reset();
  pause_ = loop_->addTimer(kPauseWithoutDescriptors, false, [this] { listen(); });
}

void SocketListener::admit(Descriptor connection) {
  const auto user = primitives::userOfPeer(connection.number());
  if (!user) {
    return;
  }
  const Caller caller{*user, primitives::processOfPeer(connection.number()).value_or(0)};
  if (!mayEnter(caller)) {
    return;
  }
  const PeerId id = ++lastPeer_;
  const auto peer = std::make_shared<Peer>(std::move(connection), caller, limits_.frameSize);
  watch(id, *peer);
  connected_.emplace(id, peer);
}

void SocketListener::watch(PeerId id, Peer& peer) {
  peer.readable = loop_->addDescriptor(peer.socket.number(), RunLoop::Interest::Readable, [this, id] { receive(id); });
}

bool SocketListener::mayEnter(const Caller& caller) {
  if (peers_ == Peers::RootOnly && caller.user != 0) {
    return false;
  }
  const auto of = [this](auto belongs) {
    return static_cast<std::size_t>(
        std::ranges::count_if(connected_, [&](const auto& entry) { return belongs(entry.second->caller); }));
  };
  const std::size_t ofUser = of([&](const Caller& other) { return other.user == caller.user; });
  if (caller.user == 0) {
    return ofUser < limits_.connectionsOfRoot;
  }
  if (ofUser >= limits_.connectionsOfAnotherUser) {
    const auto leaving = peerToLeaveFor(caller);
    if (leaving) {
      close(*leaving);
    }
    return leaving.has_value();
  }
  return of([](const Caller& other) { return other.user != 0; }) < limits_.connectionsOfOthers;
}

std::optional<SocketListener::PeerId> SocketListener::peerToLeaveFor(const Caller& caller) const {
  std::map<pid_t, std::size_t> ofProcess;
  for (const auto& [id, peer] : connected_) {
    ofProcess[peer->caller.process] += peer->caller.user == caller.user ? 1U : 0U;
  }
  std::size_t most = 0;
  for (const auto& [process, connections] : ofProcess) {
    most = std::max(most, connections);
  }
  if (ofProcess[caller.process] >= most) {
    return std::nullopt;
  }
  std::optional<PeerId> leaving;
  for (const auto& [id, peer] : connected_) {
    const bool mayGo = peer->caller.user == caller.user && ofProcess[peer->caller.process] == most;
    if (mayGo && (!leaving || peer->lastHeard < find(*leaving)->lastHeard)) {
      leaving = id;
    }
  }
  return leaving;
}

void SocketListener::receive(PeerId id) {
  const auto peer = find(id);
  if (!peer) {
    return;
  }
  if (held_) {
    putAside(id, *peer);
    return;
  }
  std::array<char, kReadAtOnce> bytes;
  const ssize_t count = recv(peer->socket.number(), bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (count < 0 && isMomentary(errno)) {
    return;
  }
  if (count <= 0) {
    close(id);
    return;
  }
  if (!peer->leaving) {
    peer->reader.append({bytes.data(), static_cast<std::size_t>(count)});
    handOverFrames(id);
  }
}

void SocketListener::handOverFrames(PeerId id) {
  while (const auto peer = find(id)) {
    if (peer->leaving) {
      return;
    }
    const auto content = peer->reader.next();
    if (!content) {
      if (peer->reader.isBroken()) {
        close(id);
      }
      return;
    }
    peer->lastHeard = ++frames_;
    const std::weak_ptr<const bool> life = life_;
    // The handler may end this object, and itself with it.
    const auto handler = handlers_.frame;
    handler(id, *content);
    if (life.expired()) {
      return;
    }
  }
}

// Its descriptor stays readable, so watching it on would keep the loop busy.
void SocketListener::putAside(PeerId id, Peer& peer) {
  peer.readable.reset();
  putAside_.push_back(id);
}

void SocketListener::resume() {
  held_ = false;
  for (const PeerId id : std::exchange(putAside_, {})) {
    const auto peer = find(id);
    if (peer && !peer->readable) {
      watch(id, *peer);
    }
  }
}

void SocketListener::send(PeerId id, std::string_view content) {
  const auto peer = find(id);
  if (!peer || peer->leaving) {
    return;
  }
  // One frame of any size always goes; what counts is what the peer left unread before.
  if (peer->output.size() > limits_.unreadOutput) {
    close(id);
    return;
  }
  peer->output.append(framed(content));
  flush(id);
}

void SocketListener::closeAfterSending(PeerId id) {
  const auto peer = find(id);
  if (!peer) {
    return;
  }
  peer->leaving = true;
  if (peer->output.empty()) {
    close(id);
  }
}

std::optional<Caller> SocketListener::caller(PeerId id) const {
  const auto peer = find(id);
  return peer ? std::optional(peer->caller) : std::nullopt;
}

void SocketListener::flush(PeerId id) {
  const auto peer = find(id);
  if (!peer) {
    return;
  }
  while (!peer->output.empty()) {
    const ssize_t sent = primitives::sendSome(peer->socket.number(), peer->output);
    if (sent < 0 && errno == EINTR) {
      continue;
    }
    if (sent < 0 && !isMomentary(errno)) {
      close(id);
      return;
    }
    if (sent < 0) {
      waitUntilWritable(id);
      return;
    }
    peer->output.erase(0, static_cast<std::size_t>(sent));
  }
  peer->writable.reset();
  if (peer->leaving) {
    close(id);
  }
}

void SocketListener::waitUntilWritable(PeerId id) {
  const auto peer = find(id);
  if (!peer->writable) {
    peer->writable =
        loop_->addDescriptor(peer->socket.number(), RunLoop::Interest::Writable, [this, id] { flush(id); });
  }
}

void SocketListener::close(PeerId id) {
  const auto peer = find(id);
  if (!peer) {
    return;
  }
  peer->readable.reset();
  peer->writable.reset();
  connected_.erase(id);
  // Others may hold the object for a moment longer, but the connection ends now.
  peer->socket.reset();
  if (std::exchange(waitingForRoom_, false)) {
    listen();
  }
  if (handlers_.closed) {
    handlers_.closed(id);
  }
}

std::shared_ptr<SocketListener::Peer> SocketListener::find(PeerId id) const {
  const auto found = connected_.find(id);
  return found == connected_.end() ? nullptr : found->second;
}

}  // namespace ipc
