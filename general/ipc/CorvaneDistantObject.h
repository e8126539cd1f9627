#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "general/foundation/propertylist/PropertyList.h"
#include "general/ipc/ClientConnection.h"
#include "general/ipc/ClientIdentity.h"
#include "general/ipc/NotificationObserver.h"
#include "general/ipc/Protocol.h"
#include "general/ipc/RemoteException.h"

namespace ipc {

/// Time-out of requests and replies, in seconds, for every connection made from now on in this process.
extern std::atomic<double> gTimeoutInterval;
/// Pause between two attempts of one call, in seconds.
inline constexpr double kDelayBetweenAttempts = 0.5;
/// Attempts of one call, the first included.
inline constexpr int kNumberOfAttemptsToInvoke = 5;

/// A message to a remote object and, afterwards, its result: what the object answered, nil (the zero of every type)
/// where nobody vends, and what it was before where the call failed with an exception.
struct Invocation {
  std::string selector;
  std::vector<foundation::PropertyList> arguments;
  foundation::PropertyList returnValue;
};

/// Stands in for an object that another process vends under a registered name.
///
/// It connects when it is first used and again after the server restarted or the connection died, tries a failed call
/// again where that was asked for, and never throws what a remote call raised: the exception of a call that failed for
/// good is kept in recentException(). When nobody vends under the name, a call does nothing and its result is nil, with
/// no exception. Both ends show each other this machine's profile data. Use from one thread at a time; a start-up
/// notification is heard on the run loop of the thread that made the object.
class CorvaneDistantObject {
 public:
  /// With an unknown protocol name or no server name the object stays uninitialised: it responds to nothing.
  /// @param startUpNotificationName what the server posts when it (re)starts; nothing when it posts none.
  CorvaneDistantObject(std::optional<std::string> name, std::optional<std::string> protocolName,
                       std::optional<std::string> startUpNotificationName);
  /// Also raises the process-wide gTimeoutInterval to a minute, for good.
  CorvaneDistantObject(std::optional<std::string> name, std::optional<std::string> protocolName,
                       std::optional<std::string> startUpNotificationName, bool retryAfterException);
  CorvaneDistantObject();
  ~CorvaneDistantObject();
  CorvaneDistantObject(const CorvaneDistantObject&) = delete;
  CorvaneDistantObject& operator=(const CorvaneDistantObject&) = delete;

  [[nodiscard]] bool respondsToSelector(std::string_view selector) const;
  /// The operation of the protocol behind a selector; null when there is none.
  [[nodiscard]] const Operation* methodSignatureForSelector(std::string_view selector) const;
  /// Sends the message and fills in its result. A selector outside the protocol throws
  /// RemoteException(kInvalidArgumentException) and is not sent.
  void forwardInvocation(Invocation& invocation);
  /// The same in one expression: the result, or nil.
  foundation::PropertyList send(std::string_view selector, std::vector<foundation::PropertyList> arguments = {});

  /// The exception of the last call, if it failed for good.
  [[nodiscard]] const std::optional<RemoteException>& recentException() const { return recentException_; }
  [[nodiscard]] const std::optional<std::string>& protocolName() const { return protocolName_; }
  [[nodiscard]] const std::optional<std::string>& remoteServerName() const { return remoteServerName_; }
  [[nodiscard]] const std::optional<std::string>& serverDidStartNotificationName() const {
    return serverDidStartNotificationName_;
  }
  [[nodiscard]] bool shouldPersistConnection() const { return persistConnection_; }
  /// Whether the connection is kept between calls; true at first.
  void setPersistConnection(bool persist) { persistConnection_ = persist; }
  [[nodiscard]] bool retryAfterException() const { return retryAfterException_; }
  /// Whether there is a connection now, without making one.
  [[nodiscard]] bool isConnected() const { return connection_ != nullptr; }

 private:
  /// The connection to the remote object, made now if need be; null when nobody vends under the name.
  ClientConnection* rootProxy();
  void invokeWithRetries(const Operation& operation, Invocation& invocation);
  void dropConnection();

  std::optional<std::string> remoteServerName_;
  std::optional<std::string> protocolName_;
  std::optional<std::string> serverDidStartNotificationName_;
  const Protocol* protocol_ = nullptr;
  bool persistConnection_ = false;
  bool retryAfterException_ = false;
  std::unique_ptr<NotificationObserver> observer_;
  ClientIdentity identity_;
  std::unique_ptr<ClientConnection> connection_;
  std::optional<RemoteException> recentException_;
};

}  // namespace ipc
