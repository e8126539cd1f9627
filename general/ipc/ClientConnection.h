#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "general/foundation/propertylist/PropertyList.h"
#include "general/ipc/ConnectionDelegate.h"
#include "general/ipc/Notification.h"
#include "general/ipc/Protocol.h"
#include "general/ipc/RemoteException.h"

namespace ipc {

/// A connection to an object that another process vends. Needs no run loop. Use from one thread at a time.
class ClientConnection {
 public:
  ~ClientConnection();
  ClientConnection(const ClientConnection&) = delete;
  ClientConnection& operator=(const ClientConnection&) = delete;

  /// Null when nobody vends under this name, or when it is not root who does.
  [[nodiscard]] static std::unique_ptr<ClientConnection> connectionWithRegisteredName(std::string_view name);

  /// How long invoke() waits for an answer, and for the peer to take a request, in seconds. 10 at first.
  void setReplyTimeout(double seconds);
  void setRequestTimeout(double seconds);
  /// Must be set before the first message and outlive the connection. Without one, every message fails.
  void setDelegate(ConnectionDelegate* delegate);
  /// False once the peer has gone or the connection broke.
  [[nodiscard]] bool isValid();
  void invalidate();

  /// Sends a request and waits for its answer; a one-way request is sent without waiting at all.
  /// Throws RemoteException: time-out, peer gone, failed authentication, a result of another type, or what the peer
  /// raised. After a time-out, a broken or an unauthentic message the connection is no longer valid.
  foundation::PropertyList invoke(const Operation& operation, std::span<const foundation::PropertyList> arguments);

  /// Asks the peer to send its notifications over this connection from now on. Throws as invoke() does.
  void observeNotifications();
  /// For run loops and poll(): readable when something may have arrived. Open as long as the connection is valid.
  [[nodiscard]] int descriptor() const;
  /// The notifications that have arrived so far, without waiting. Throws RemoteException when the connection broke and
  /// none is left.
  [[nodiscard]] std::vector<Notification> takeNotifications();
  /// What the peer raised, of what has arrived so far, about a one-way request; the last of them. Nothing as a rule:
  /// peers tell of such requests only that they may not be carried out.
  [[nodiscard]] std::optional<RemoteException> takeRefusal();

 private:
  class Implementation;
  explicit ClientConnection(std::unique_ptr<Implementation> implementation);
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace ipc
