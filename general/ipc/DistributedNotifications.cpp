#include "general/ipc/DistributedNotifications.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <list>
#include <utility>
#include <vector>

#include "general/foundation/Descriptor.h"
#include "general/foundation/Paths.h"
#include "general/foundation/extensions/NSStringExtensions.h"
#include "general/foundation/files/FileManager.h"
#include "general/foundation/files/TrustedFolder.h"
#include "general/ipc/Frame.h"
#include "general/ipc/Message.h"
#include "general/ipc/ServiceFolder.h"
#include "general/ipc/ServiceSocket.h"
#include "general/ipc/SocketPrimitives.h"
#include "general/ipc/VRKConnectionAuthenticator.h"
#include "general/logging/SystemLog.h"
#include "general/system/ProcessSelf.h"

namespace ipc {

namespace paths = foundation::paths;
namespace trusted_folder = foundation::trusted_folder;
using foundation::Descriptor;
using foundation::RunLoop;

namespace {

// Fits into what the system keeps for a connection, so that a poster never waits for a reader.
constexpr std::size_t kLargestNotification = std::size_t{64} * 1024;
// A notification is written in one go, so few are ever unfinished; of more, the oldest makes room.
constexpr std::size_t kMostUnfinished = 32;
// A flood of notifications leaves the loop's other sources their turns.
constexpr int kMostInOneTurn = 64;
// When the system has no descriptor left for one more connection, asking again at once would only burn time.
constexpr std::chrono::milliseconds kPauseWithoutDescriptors{500};

std::optional<std::string> frameOf(const Notification& notification) {
  Message message;
  message.kind = Message::Kind::Notification;
  message.notification = notification;
  VRKConnectionAuthenticator authenticator;
  const auto content = encode(message, authenticator);
  if (!content || content->size() > kLargestNotification) {
    return std::nullopt;
  }
  return framed(*content);
}

bool isSocket(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

void complain(const std::string& observer, const Notification& notification) {
  const int number = errno;
  logging::error("Unable to notify %@ of %@. %s", observer, notification.name, std::strerror(number));
}

void sendTo(const std::string& observer, std::string_view frame, const Notification& notification) {
  const Descriptor connection = connectTo(observer, false);
  if (!connection.isOpen()) {
    if (errno == ECONNREFUSED) {
      // A socket listens before its name shows, and no name comes twice: its owner is dead.
      unlink(observer.c_str());
    } else if (errno != ENOENT) {
      complain(observer, notification);
    }
    return;
  }
  if (primitives::userOfPeer(connection.number()) == uid_t{0} &&
      primitives::sendSome(connection.number(), frame) != static_cast<ssize_t>(frame.size())) {
    complain(observer, notification);
  }
}

/// A socket of this process at which notifications arrive; its name goes with it.
class ObserverSocket {
 public:
  /// Null, with the reason in the log, when there is none to be had.
  static std::unique_ptr<ObserverSocket> make() {
    const auto lock = ServiceFolderLock::acquire();
    if (!lock) {
      logging::debug("Distributed notifications are not observed.");
      return nullptr;
    }
    sweepStaleSockets(kObserverFolder, *lock);
    std::string path = paths::append(std::string(kObserverFolder), foundation::NSStringExtensions::stringWithUUID());
    Descriptor socket = listenAt(path, kModeForRoot, *lock);
    return socket.isOpen() ? std::make_unique<ObserverSocket>(std::move(path), std::move(socket)) : nullptr;
  }

  ObserverSocket(std::string path, Descriptor socket) : path_(std::move(path)), socket_(std::move(socket)) {}
  ~ObserverSocket() { unlink(path_.c_str()); }
  ObserverSocket(const ObserverSocket&) = delete;
  ObserverSocket& operator=(const ObserverSocket&) = delete;

  [[nodiscard]] int number() const { return socket_.number(); }

 private:
  std::string path_;
  Descriptor socket_;
};

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
        return count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) ? State::Unfinished : State::Worthless;
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

void postDistributedNotification(const Notification& notification) {
  // In a folder that others can write in, anything may stand.
  if (platform::self::effectiveUserId() != 0 || !trusted_folder::isRootsAlone(std::string(kServiceFolder)) ||
      !trusted_folder::isRootsAlone(std::string(kObserverFolder))) {
    return;
  }
  const auto observers = foundation::files::contentsOfDirectory(std::string(kObserverFolder));
  if (!observers) {
    return;
  }
  const auto frame = frameOf(notification);
  if (!frame) {
    logging::error("The notification %@ cannot be posted: it is too long.", notification.name);
    return;
  }
  for (const std::string& name : *observers) {
    const std::string path = paths::append(std::string(kObserverFolder), name);
    // Sockets that are being made have hidden names.
    if (!name.starts_with(".") && isSocket(path)) {
      sendTo(path, *frame, notification);
    }
  }
}

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
      return number == ECONNABORTED || number == EINTR;
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
