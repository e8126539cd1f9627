#include "general/ipc/NotificationObserver.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <list>
#include <utility>
#include <vector>

#include "general/foundation/Descriptor.h"
#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/Frame.h"
#include "general/ipc/Message.h"
#include "general/ipc/ObserverSocket.h"
#include "general/ipc/SocketErrors.h"
#include "general/ipc/SocketPrimitives.h"

namespace ipc {

using foundation::Descriptor;
using foundation::RunLoop;

namespace {

// A notification is written in one go, so few are ever unfinished; of more, the oldest makes room.
constexpr std::size_t kMostUnfinished = 32;
// A flood of notifications leaves the loop's other sources their turns.
constexpr int kMostInOneTurn = 64;

/// A connection on which one notification comes.
struct Arrival {
  enum class State { Unfinished, Complete, Worthless };

  Descriptor socket;
  RunLoop::Source source;
  FrameReader reader{kLargestNotification};
  std::optional<std::string> content;

  State read() {
    std::array<char, kFrameHeaderSize + kLargestNotification> bytes;
    while (true) {
      content = reader.next();
      if (content || reader.isBroken()) {
        return content ? State::Complete : State::Worthless;
      }
      const ssize_t count = recv(socket.number(), bytes.data(), bytes.size(), MSG_DONTWAIT);
      if (count > 0) {
        reader.append({bytes.data(), static_cast<std::size_t>(count)});
      } else if (count == 0 || errno != EINTR) {
        return count < 0 && isMomentary(errno) ? State::Unfinished : State::Worthless;
      }
    }
  }
};

struct Registration {
  std::string name;
  std::optional<std::string> object;
  NotificationObserver::Handler handler;
  bool removed = false;

  [[nodiscard]] bool wants(const Notification& notification) const {
    return !removed && name == notification.name && (!object || *object == notification.object);
  }
};

}  // namespace

/// Not a SocketListener: notifications come in order across connections, one on each, and as many as the system keeps
/// may wait there without a descriptor each. Shared with the turn that serves it, so that a handler may end the
/// observer.
class NotificationObserver::Implementation : public std::enable_shared_from_this<Implementation> {
 public:
  Implementation() = default;
  ~Implementation() = default;
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void open() {
    listener_ = ObserverSocket::make();
    if (isOpen()) {
      listening_ = watch(listener_->number());
    }
  }
  void close() {
    listening_.reset();
    pause_.reset();
    listener_.reset();
    arrivals_.clear();
    for (const auto& registration : registrations_) {
      registration->removed = true;
    }
  }
  [[nodiscard]] bool isOpen() const { return listener_ != nullptr; }

  void add(Registration registration) {
    registrations_.push_back(std::make_shared<Registration>(std::move(registration)));
  }
  void remove(std::string_view name, const std::optional<std::string>& object) {
    std::erase_if(registrations_, [&](const std::shared_ptr<Registration>& registration) {
      registration->removed = registration->removed || (registration->name == name && registration->object == object);
      return registration->removed;
    });
  }

 private:
  using Arrivals = std::list<Arrival>;

  RunLoop::Source watch(int descriptor) {
    return loop_->addDescriptor(descriptor, RunLoop::Interest::Readable, [weak = weak_from_this()] {
      if (const auto self = weak.lock()) {
        self->listen();
      }
    });
  }

  /// Takes what has come, whichever connection it is. A thread connects for its next notification when its last one has
  /// been written, so the order is kept as long as earlier connections are looked at before another one is accepted.
  /// Handlers may do anything, even turn the loop, so nothing is kept across them.
  void listen() {
    for (int heard = 0; heard < kMostInOneTurn && isOpen();) {
      if (const auto notification = nextComplete()) {
        deliver(*notification);
        ++heard;
      } else if (!acceptOne()) {
        return;
      }
    }
  }

  std::optional<Notification> nextComplete() {
    for (auto next = arrivals_.begin(); next != arrivals_.end();) {
      const auto arrival = next++;
      const Arrival::State state = arrival->read();
      if (state == Arrival::State::Unfinished) {
        continue;
      }
      // It is root's, so there is nothing to authenticate.
      auto message = state == Arrival::State::Complete ? decode(*arrival->content) : std::nullopt;
      arrivals_.erase(arrival);
      if (message && message->kind == Message::Kind::Notification) {
        return std::move(message->notification);
      }
    }
    return std::nullopt;
  }

  /// False when nobody waits any more.
  bool acceptOne() {
    Descriptor socket = primitives::acceptFrom(listener_->number());
    if (!socket.isOpen()) {
      const int number = errno;
      if (number == EMFILE || number == ENFILE || number == ENOBUFS || number == ENOMEM) {
        pauseAccepting();
      }
      return concernsOneConnection(number);
    }
    if (primitives::userOfPeer(socket.number()) != uid_t{0}) {
      return true;
    }
    if (arrivals_.size() >= kMostUnfinished) {
      arrivals_.pop_front();
    }
    Arrival& arrival = arrivals_.emplace_back();
    arrival.source = watch(socket.number());
    arrival.socket = std::move(socket);
    return true;
  }

  void pauseAccepting() {
    listening_.reset();
    pause_ = loop_->addTimer(kPauseWithoutDescriptors, false, [weak = weak_from_this()] {
      if (const auto self = weak.lock(); self != nullptr && self->isOpen()) {
        self->listening_ = self->watch(self->listener_->number());
      }
    });
  }

  void deliver(const Notification& notification) {
    const auto registrations = registrations_;
    for (const auto& registration : registrations) {
      if (registration->wants(notification)) {
        registration->handler(notification);
      }
    }
  }

  const std::shared_ptr<RunLoop> loop_ = RunLoop::current();
  std::unique_ptr<ObserverSocket> listener_;
  RunLoop::Source listening_;
  RunLoop::Source pause_;
  Arrivals arrivals_;
  std::vector<std::shared_ptr<Registration>> registrations_;
};

NotificationObserver::NotificationObserver() : implementation_(std::make_shared<Implementation>()) {
  implementation_->open();
}

NotificationObserver::~NotificationObserver() { implementation_->close(); }

bool NotificationObserver::isListening() const { return implementation_->isOpen(); }

void NotificationObserver::add(std::string name, std::optional<std::string> object, Handler handler) {
  implementation_->add({std::move(name), std::move(object), std::move(handler)});
}

void NotificationObserver::remove(std::string_view name, const std::optional<std::string>& object) {
  implementation_->remove(name, object);
}

}  // namespace ipc
