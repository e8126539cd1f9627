#include "general/ipc/ClientConnection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <deque>
#include <thread>
#include <utility>

#include "general/foundation/Descriptor.h"
#include "general/foundation/execution/Deadline.h"
#include "general/foundation/propertylist/TextFormat.h"
#include "general/ipc/Frame.h"
#include "general/ipc/Message.h"
#include "general/ipc/RemoteException.h"
#include "general/ipc/ServiceSocket.h"
#include "general/ipc/SocketErrors.h"
#include "general/ipc/SocketPrimitives.h"

namespace ipc {

using foundation::Descriptor;
using foundation::PropertyList;

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kDefaultTimeout = 10.0;
constexpr double kLongestTimeout = 1e9;
// Where the system cannot wait for a socket.
constexpr std::chrono::milliseconds kPauseWithoutPoll{10};
constexpr std::size_t kReadAtOnce = std::size_t{64} * 1024;
// Enough for all that waits in a socket; who sends on and on does not keep its reader for ever.
constexpr int kMostPiecesAtOnce = 64;
constexpr std::size_t kMaximumAnswerSize = std::size_t{64} * 1024 * 1024;
// Who never takes the notifications that come is not sent more than this.
constexpr std::size_t kMostWaitingNotifications = 4096;

Clock::time_point after(double seconds) {
  const double bounded = std::isnan(seconds) ? 0.0 : std::clamp(seconds, 0.0, kLongestTimeout);
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(bounded));
}

/// Whether the socket may be ready before the deadline. Errors count as ready: the next call on the socket tells them.
bool waitUntil(Clock::time_point deadline, int socket, short events) {
  while (true) {
    pollfd watched{socket, events, 0};
    const int ready = poll(&watched, 1, foundation::millisecondsUntil(deadline));
    if (ready > 0) {
      return true;
    }
    if (Clock::now() >= deadline) {
      return false;
    }
    if (ready < 0 && errno != EINTR) {
      // Whoever asks finds out what is ready, and comes back.
      std::this_thread::sleep_for(kPauseWithoutPoll);
      return true;
    }
  }
}

}  // namespace

class ClientConnection::Implementation {
 public:
  explicit Implementation(Descriptor socket) : socket_(std::move(socket)) {}

  void setReplyTimeout(double seconds) { replyTimeout_ = seconds; }
  void setRequestTimeout(double seconds) { requestTimeout_ = seconds; }
  void setDelegate(ConnectionDelegate* delegate) { delegate_ = delegate; }
  [[nodiscard]] int descriptor() const { return socket_.number(); }
  void invalidate() { socket_.reset(); }

  bool isValid() {
    if (socket_.isOpen()) {
      takeIn();
    }
    return socket_.isOpen();
  }

  PropertyList invoke(const Operation& operation, std::span<const PropertyList> arguments) {
    Message request;
    request.kind = operation.oneWay ? Message::Kind::OneWay : Message::Kind::Call;
    request.number = ++lastNumber_;
    request.selector = operation.selector;
    request.arguments.assign(arguments.begin(), arguments.end());
    sendMessage(request, operation.oneWay);
    return operation.oneWay ? PropertyList() : awaitResult(operation);
  }

  void observeNotifications() {
    Message request;
    request.kind = Message::Kind::Observe;
    sendMessage(request, false);
  }

  std::optional<RemoteException> takeRefusal() {
    static_cast<void>(isValid());
    return std::exchange(refusal_, std::nullopt);
  }

  std::vector<Notification> takeNotifications() {
    if (!isValid() && notifications_.empty()) {
      throw RemoteException(
          end_.value_or(RemoteException(kInvalidReceivePortException, "The connection is not open any more.")));
    }
    std::deque<Notification> taken = std::exchange(notifications_, {});
    return {std::move_iterator(taken.begin()), std::move_iterator(taken.end())};
  }

 private:
  [[noreturn]] void fail(std::string_view name, const std::string& reason) {
    invalidate();
    end_.emplace(name, reason);
    throw RemoteException(*end_);
  }

  [[noreturn]] void failAsGone() {
    // It may have said why.
    takeIn();
    if (end_ && end_->name() == kFailedAuthenticationException) {
      throw RemoteException(*end_);
    }
    fail(kInvalidSendPortException, "The peer has gone.");
  }

  /// Takes in what has come, without waiting. What ends the connection is kept.
  void takeIn() {
    try {
      // What came along with an answer has been read already.
      keepAllUnasked();
      for (int piece = 0; piece < kMostPiecesAtOnce && receiveSome(); ++piece) {
        keepAllUnasked();
      }
    } catch (const RemoteException&) {
      // Told by isValid(), and to who asks for notifications.
    }
  }

  void sendMessage(const Message& message, bool withoutWaiting) {
    if (delegate_ == nullptr) {
      fail(kFailedAuthenticationException, "The connection has no delegate.");
    }
    if (!socket_.isOpen()) {
      fail(kInvalidSendPortException, "The connection is not open any more.");
    }
    const auto content = encode(message, *delegate_);
    if (!content) {
      throw RemoteException(kInvalidArgumentException, "The arguments cannot be sent.");
    }
    sendBytes(framed(*content), after(withoutWaiting ? 0.0 : requestTimeout_));
  }

  void sendBytes(std::string_view bytes, Clock::time_point deadline) {
    while (!bytes.empty()) {
      const ssize_t sent = primitives::sendSome(socket_.number(), bytes);
      if (sent >= 0) {
        bytes.remove_prefix(static_cast<std::size_t>(sent));
      } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
        if (!waitUntil(deadline, socket_.number(), POLLOUT)) {
          fail(kPortTimeoutException, "The peer did not take the request in time.");
        }
      } else if (errno != EINTR) {
        failAsGone();
      }
    }
  }

  PropertyList awaitResult(const Operation& operation) {
    const auto deadline = after(replyTimeout_);
    while (true) {
      while (auto message = nextMessage()) {
        if (message->kind != Message::Kind::Notification && message->number == lastNumber_) {
          return resultIn(*message, operation);
        }
        keepUnasked(*message);
      }
      if (!waitUntil(deadline, socket_.number(), POLLIN)) {
        fail(kPortTimeoutException, foundation::format("No answer to %@ came in time.", operation.selector));
      }
      receiveSome();
    }
  }

  PropertyList resultIn(const Message& answer, const Operation& operation) {
    if (answer.kind == Message::Kind::Exception) {
      if (answer.exceptionName == kFailedAuthenticationException) {
        fail(answer.exceptionName, answer.exceptionReason);
      }
      throw RemoteException(answer.exceptionName, answer.exceptionReason);
    }
    if (answer.kind != Message::Kind::Reply) {
      fail(kPortReceiveException, "The peer answered with something that is no answer.");
    }
    if (!hasType(answer.result, operation.result)) {
      throw RemoteException(kInvalidArgumentException,
                            foundation::format("The result of %@ has a wrong type.", operation.selector));
    }
    return answer.result;
  }

  /// The next message that has arrived whole and is authentic.
  std::optional<Message> nextMessage() {
    const auto content = reader_.next();
    if (!content) {
      if (reader_.isBroken()) {
        fail(kPortReceiveException, "The peer sent a message of an impossible length.");
      }
      return std::nullopt;
    }
    auto message = decode(*content);
    if (!message) {
      fail(kPortReceiveException, "The peer sent something that is no message.");
    }
    if (delegate_ == nullptr || !isAuthentic(*message, *delegate_)) {
      fail(kFailedAuthenticationException, "The answer was not authentic.");
    }
    return message;
  }

  void keepAllUnasked() {
    while (const auto message = nextMessage()) {
      keepUnasked(*message);
    }
  }

  void keepUnasked(const Message& message) {
    if (message.kind == Message::Kind::Exception && message.exceptionName == kFailedAuthenticationException) {
      // Of a request that nobody waits for.
      fail(message.exceptionName, message.exceptionReason);
    }
    if (message.kind == Message::Kind::Exception && message.number == 0) {
      refusal_.emplace(message.exceptionName, message.exceptionReason);
    }
    if (message.kind != Message::Kind::Notification) {
      return;
    }
    notifications_.push_back(message.notification);
    if (notifications_.size() > kMostWaitingNotifications) {
      notifications_.pop_front();
    }
  }

  /// Reads what is there; false when nothing is.
  bool receiveSome() {
    std::array<char, kReadAtOnce> bytes;
    const ssize_t count = recv(socket_.number(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0 && isMomentary(errno)) {
      return false;
    }
    if (count <= 0) {
      fail(kInvalidReceivePortException, "The peer has gone.");
    }
    reader_.append({bytes.data(), static_cast<std::size_t>(count)});
    return true;
  }

  Descriptor socket_;
  ConnectionDelegate* delegate_ = nullptr;
  double replyTimeout_ = kDefaultTimeout;
  double requestTimeout_ = kDefaultTimeout;
  std::int64_t lastNumber_ = 0;
  FrameReader reader_{kMaximumAnswerSize};
  std::deque<Notification> notifications_;
  std::optional<RemoteException> end_;
  std::optional<RemoteException> refusal_;
};

ClientConnection::ClientConnection(std::unique_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}

ClientConnection::~ClientConnection() = default;

std::unique_ptr<ClientConnection> ClientConnection::connectionWithRegisteredName(std::string_view name) {
  const auto path = socketPathOfService(name);
  if (!path) {
    return nullptr;
  }
  Descriptor socket = connectTo(*path, true);
  if (!socket.isOpen() || primitives::userOfPeer(socket.number()) != uid_t{0}) {
    return nullptr;
  }
  return std::unique_ptr<ClientConnection>(new ClientConnection(std::make_unique<Implementation>(std::move(socket))));
}

void ClientConnection::setReplyTimeout(double seconds) { implementation_->setReplyTimeout(seconds); }

void ClientConnection::setRequestTimeout(double seconds) { implementation_->setRequestTimeout(seconds); }

void ClientConnection::setDelegate(ConnectionDelegate* delegate) { implementation_->setDelegate(delegate); }

bool ClientConnection::isValid() { return implementation_->isValid(); }

void ClientConnection::invalidate() { implementation_->invalidate(); }

PropertyList ClientConnection::invoke(const Operation& operation, std::span<const PropertyList> arguments) {
  return implementation_->invoke(operation, arguments);
}

void ClientConnection::observeNotifications() { implementation_->observeNotifications(); }

int ClientConnection::descriptor() const { return implementation_->descriptor(); }

std::optional<RemoteException> ClientConnection::takeRefusal() { return implementation_->takeRefusal(); }

std::vector<Notification> ClientConnection::takeNotifications() { return implementation_->takeNotifications(); }

}  // namespace ipc
