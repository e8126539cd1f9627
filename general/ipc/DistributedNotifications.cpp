#include "general/ipc/DistributedNotifications.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "general/foundation/FileManager.h"
#include "general/foundation/NSStringExtensions.h"
#include "general/foundation/Paths.h"
#include "general/ipc/Message.h"
#include "general/ipc/ServiceFolder.h"
#include "general/ipc/SocketListener.h"
#include "general/ipc/SocketPrimitives.h"
#include "general/ipc/VRKConnectionAuthenticator.h"
#include "general/logging/SystemLog.h"
#include "general/system/ProcessSelf.h"

namespace ipc {

namespace paths = foundation::paths;
using foundation::Descriptor;

namespace {

std::optional<std::string> frameOf(const Notification& notification) {
  Message message;
  message.kind = Message::Kind::Notification;
  message.notification = notification;
  VRKConnectionAuthenticator authenticator;
  const auto content = encode(message, authenticator);
  return content ? std::optional(framed(*content)) : std::nullopt;
}

void sendTo(const std::string& path, const std::string& frame) {
  const Descriptor observer = connectTo(path, false);
  if (!observer.isOpen()) {
    // Somebody who died. A name that is still being made is hidden, so it is not taken for that.
    if (errno == ECONNREFUSED) {
      unlink(path.c_str());
    }
    return;
  }
  // A frame fits into what the system keeps for a new connection, so it goes out whole or not at all.
  if (primitives::sendSome(observer.number(), frame) != static_cast<ssize_t>(frame.size())) {
    logging::error("Unable to notify the observer at %@", path);
  }
}

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
  if (platform::self::effectiveUserId() != 0) {
    return;
  }
  const std::string folder(kObserverFolder);
  const auto names = foundation::files::contentsOfDirectory(folder);
  const auto frame = frameOf(notification);
  if (!names || !frame) {
    return;
  }
  for (const std::string& name : *names) {
    if (!name.starts_with(".")) {
      sendTo(paths::append(folder, name), *frame);
    }
  }
}

class NotificationObserver::Implementation {
 public:
  Implementation() {
    const auto lock = ServiceFolderLock::acquire();
    if (!lock) {
      return;
    }
    sweepStaleSockets(kObserverFolder, *lock);
    const std::string path =
        paths::append(std::string(kObserverFolder), foundation::NSStringExtensions::stringWithUUID());
    Descriptor socket = listenAt(path, kModeForRoot, *lock);
    if (!socket.isOpen()) {
      return;
    }
    name_ = std::make_unique<SocketName>(path);
    listener_ = std::make_unique<SocketListener>(
        std::move(socket), SocketListener::Peers::RootOnly, SocketListener::Limits{},
        SocketListener::Handlers{[this](SocketListener::PeerId /*peer*/, const std::string& content) { hear(content); },
                                 {}});
  }

  ~Implementation() {
    for (const auto& registration : registrations_) {
      registration->removed = true;
    }
  }
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  [[nodiscard]] bool isListening() const { return listener_ != nullptr; }

  void add(std::string name, std::optional<std::string> object, Handler handler) {
    registrations_.push_back(
        std::make_shared<Registration>(Registration{std::move(name), std::move(object), std::move(handler)}));
  }

  void remove(std::string_view name, const std::optional<std::string>& object) {
    std::erase_if(registrations_, [&](const std::shared_ptr<Registration>& registration) {
      registration->removed = registration->name == name && registration->object == object;
      return registration->removed;
    });
  }

 private:
  void hear(const std::string& content) {
    const auto message = decode(content);
    if (!message || message->kind != Message::Kind::Notification) {
      return;
    }
    // Handlers may add and remove registrations, and end the observer.
    const auto registrations = registrations_;
    for (const auto& registration : registrations) {
      if (registration->wants(message->notification)) {
        registration->handler(message->notification);
      }
    }
  }

  std::vector<std::shared_ptr<Registration>> registrations_;
  std::unique_ptr<SocketName> name_;
  std::unique_ptr<SocketListener> listener_;
};

NotificationObserver::NotificationObserver() : implementation_(std::make_unique<Implementation>()) {}

NotificationObserver::~NotificationObserver() = default;

bool NotificationObserver::isListening() const { return implementation_->isListening(); }

void NotificationObserver::add(std::string name, std::optional<std::string> object, Handler handler) {
  implementation_->add(std::move(name), std::move(object), std::move(handler));
}

void NotificationObserver::remove(std::string_view name, const std::optional<std::string>& object) {
  implementation_->remove(name, object);
}

}  // namespace ipc
