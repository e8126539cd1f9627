#include "general/ipc/ServerConnection.h"

#include <exception>
#include <set>
#include <utility>

#include "general/ipc/Message.h"
#include "general/ipc/RemoteException.h"
#include "general/ipc/ServiceFolder.h"
#include "general/ipc/SocketListener.h"

namespace ipc {

using foundation::PropertyList;
using PeerId = SocketListener::PeerId;

namespace {

Message replyTo(const Message& request, PropertyList result) {
  Message reply;
  reply.kind = Message::Kind::Reply;
  reply.number = request.number;
  reply.result = std::move(result);
  return reply;
}

Message exceptionFor(const Message& request, std::string_view name, std::string reason) {
  Message exception;
  exception.kind = Message::Kind::Exception;
  exception.number = request.number;
  exception.exceptionName = name;
  exception.exceptionReason = std::move(reason);
  return exception;
}

}  // namespace

class ServerConnection::Implementation {
 public:
  explicit Implementation(const Options& options) : options_(options) {}

  void setDelegate(std::shared_ptr<ConnectionDelegate> delegate) { delegate_ = std::move(delegate); }
  void setRootObject(std::shared_ptr<const ProtocolChecker> rootObject) { rootObject_ = std::move(rootObject); }

  bool registerName(const std::string& name) {
    const auto path = socketPathOfService(name);
    if (!path || registered_) {
      return false;
    }
    const auto lock = ServiceFolderLock::acquire();
    if (!lock) {
      return false;
    }
    sweepStaleSockets(kServiceFolder, *lock);
    if (stateOfSocket(*path) == SocketState::Alive) {
      return false;
    }
    const bool forEverybody = options_.peers == Peers::Everybody;
    foundation::Descriptor socket = listenAt(*path, forEverybody ? kModeForEverybody : kModeForRoot, *lock);
    if (!socket.isOpen()) {
      return false;
    }
    registered_ = std::make_unique<SocketName>(*path);
    serve(std::move(socket));
    return true;
  }

  void sendNotification(const Notification& notification) {
    Message message;
    message.kind = Message::Kind::Notification;
    message.notification = notification;
    // A peer that is dropped meanwhile leaves the set.
    const std::set<PeerId> observers = observers_;
    for (const PeerId peer : observers) {
      send(peer, message);
    }
  }

 private:
  void serve(foundation::Descriptor socket) {
    SocketListener::Limits limits;
    limits.frameSize = options_.maximumRequestSize;
    const auto peers =
        options_.peers == Peers::Everybody ? SocketListener::Peers::Everybody : SocketListener::Peers::RootOnly;
    listener_ = std::make_unique<SocketListener>(
        std::move(socket), peers, limits,
        SocketListener::Handlers{[this](PeerId peer, const std::string& content) { receive(peer, content); },
                                 [this](PeerId peer) { observers_.erase(peer); }});
  }

  void receive(PeerId peer, const std::string& content) {
    const auto message = decode(content);
    if (!message) {
      listener_->closeAfterSending(peer);
    } else if (!isAuthentic(*message, content, *delegate_)) {
      send(peer, exceptionFor(*message, kFailedAuthenticationException, "The request was not authentic."));
      listener_->closeAfterSending(peer);
    } else {
      answer(peer, *message);
    }
  }

  void answer(PeerId peer, const Message& request) {
    switch (request.kind) {
      case Message::Kind::Call:
        send(peer, resultOf(request));
        break;
      case Message::Kind::OneWay:
        // Nobody waits for an answer, so nobody can be told what went wrong either.
        static_cast<void>(resultOf(request));
        break;
      case Message::Kind::Observe:
        observers_.insert(peer);
        break;
      default:
        listener_->closeAfterSending(peer);
    }
  }

  Message resultOf(const Message& request) {
    try {
      return replyTo(request,
                     rootObject_->invoke(request.selector, request.arguments, request.kind == Message::Kind::OneWay));
    } catch (const RemoteException& exception) {
      return exceptionFor(request, exception.name(), exception.what());
    } catch (const std::exception& exception) {
      return exceptionFor(request, kGenericException, exception.what());
    }
  }

  void send(PeerId peer, const Message& message) {
    if (const auto content = encode(message, *delegate_)) {
      listener_->send(peer, *content);
    } else {
      listener_->closeAfterSending(peer);
    }
  }

  Options options_;
  std::shared_ptr<ConnectionDelegate> delegate_;
  std::shared_ptr<const ProtocolChecker> rootObject_;
  std::set<PeerId> observers_;
  std::unique_ptr<SocketName> registered_;
  std::unique_ptr<SocketListener> listener_;
};

ServerConnection::ServerConnection(const Options& options)
    : implementation_(std::make_unique<Implementation>(options)) {}

ServerConnection::~ServerConnection() = default;

void ServerConnection::setDelegate(std::shared_ptr<ConnectionDelegate> delegate) {
  implementation_->setDelegate(std::move(delegate));
}

void ServerConnection::setRootObject(std::shared_ptr<const ProtocolChecker> rootObject) {
  implementation_->setRootObject(std::move(rootObject));
}

bool ServerConnection::registerName(const std::string& name) { return implementation_->registerName(name); }

void ServerConnection::sendNotification(const Notification& notification) {
  implementation_->sendNotification(notification);
}

}  // namespace ipc
