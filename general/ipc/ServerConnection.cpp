#include "general/ipc/ServerConnection.h"

#include <exception>
#include <set>
#include <utility>

#include "general/ipc/Message.h"
#include "general/ipc/RemoteException.h"
#include "general/ipc/ServiceFolder.h"
#include "general/ipc/ServiceSocket.h"
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

/// Shared with the turn that serves a request, so that a target may end the connection.
class ServerConnection::Implementation : public std::enable_shared_from_this<Implementation> {
 public:
  explicit Implementation(const Options& options) : options_(options) {}

  void setDelegate(std::shared_ptr<ConnectionDelegate> delegate) { delegate_ = std::move(delegate); }
  void setRootObject(std::shared_ptr<const ProtocolChecker> rootObject) { rootObject_ = std::move(rootObject); }

  bool registerName(const std::string& name) {
    const auto path = socketPathOfService(name);
    if (!path || registered_ || !delegate_ || !rootObject_) {
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

  [[nodiscard]] std::optional<Caller> caller() const { return caller_; }
  [[nodiscard]] bool isStarved() const { return listener_ && listener_->isStarved(); }

  void close() {
    registered_.reset();
    listener_.reset();
  }

  void sendNotification(const Notification& notification) {
    if (observers_.empty()) {
      return;
    }
    Message message;
    message.kind = Message::Kind::Notification;
    message.notification = notification;
    const auto content = encode(message, *delegate_);
    if (!content) {
      return;
    }
    // A peer that is dropped meanwhile leaves the set.
    const std::set<PeerId> observers = observers_;
    for (const PeerId peer : observers) {
      listener_->send(peer, *content);
    }
  }

 private:
  /// Keeps further requests waiting while a target works, which may turn the run loop, and even end the connection.
  class OneAtATime {
   public:
    explicit OneAtATime(Implementation& connection) : connection_(connection) { connection_.listener_->hold(); }
    ~OneAtATime() {
      if (connection_.listener_) {
        connection_.listener_->resume();
      }
    }
    OneAtATime(const OneAtATime&) = delete;
    OneAtATime& operator=(const OneAtATime&) = delete;

   private:
    Implementation& connection_;
  };

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
    const auto self = shared_from_this();
    const auto message = decode(content);
    if (!message) {
      listener_->closeAfterSending(peer);
    } else if (!isAuthentic(*message, *delegate_)) {
      send(peer, exceptionFor(*message, kFailedAuthenticationException, "The request was not authentic."));
      listener_->closeAfterSending(peer);
    } else {
      answer(peer, *message);
    }
  }

  void answer(PeerId peer, const Message& request) {
    switch (request.kind) {
      case Message::Kind::Call:
        send(peer, resultOf(peer, request));
        break;
      case Message::Kind::OneWay:
        tellRefusal(peer, resultOf(peer, request));
        break;
      case Message::Kind::Observe:
        observers_.insert(peer);
        break;
      default:
        listener_->closeAfterSending(peer);
    }
  }

  /// Nobody waits for an answer, so nobody is told what else went wrong.
  void tellRefusal(PeerId peer, Message outcome) {
    if (outcome.kind == Message::Kind::Exception && outcome.exceptionName == options_.refusal) {
      // No request that is answered has this number.
      outcome.number = 0;
      send(peer, outcome);
    }
  }

  Message resultOf(PeerId peer, const Message& request) {
    const OneAtATime turn(*this);
    caller_ = listener_->caller(peer);
    const Message outcome = outcomeOf(request);
    caller_.reset();
    return outcome;
  }

  Message outcomeOf(const Message& request) {
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
    auto content = encode(message, *delegate_);
    if (!content) {
      content = encode(exceptionFor(message, kInvalidArgumentException, "The result cannot be sent."), *delegate_);
    }
    if (content && listener_) {
      listener_->send(peer, *content);
    }
  }

  Options options_;
  std::shared_ptr<ConnectionDelegate> delegate_;
  std::shared_ptr<const ProtocolChecker> rootObject_;
  std::set<PeerId> observers_;
  std::optional<Caller> caller_;  // while a request is carried out
  std::unique_ptr<SocketName> registered_;
  std::unique_ptr<SocketListener> listener_;
};

ServerConnection::ServerConnection(const Options& options)
    : implementation_(std::make_shared<Implementation>(options)) {}

ServerConnection::~ServerConnection() { implementation_->close(); }

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

std::optional<Caller> ServerConnection::caller() const { return implementation_->caller(); }

bool ServerConnection::isStarved() const { return implementation_->isStarved(); }

}  // namespace ipc
