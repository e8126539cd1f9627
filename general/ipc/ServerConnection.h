#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "general/foundation/execution/RunLoop.h"
#include "general/ipc/Caller.h"
#include "general/ipc/ConnectionDelegate.h"
#include "general/ipc/Notification.h"
#include "general/ipc/ProtocolChecker.h"

namespace ipc {

/// Vends one object under a name that other processes on this machine can look up.
///
/// Peers are served on the run loop of the thread that made the connection, one request at a time; everything here
/// belongs to that thread. While a request is carried out, which may turn the run loop, further ones wait. Nothing a
/// peer does, or fails to do, costs more than its own connection: what it sends is bounded, vetted and checked before
/// the target is reached, and what it does not read is dropped with it.
class ServerConnection {
 public:
  enum class Peers { Everybody, RootOnly };
  struct Options {
    Peers peers = Peers::RootOnly;
    std::size_t maximumRequestSize = std::size_t{64} * 1024;  ///< of one message, in bytes
    /// The exception that is sent to who asked for a one-way operation, too: nobody waits for it, but it says that the
    /// wish was refused, not lost. Empty: there is none.
    std::string refusal = {};
  };

  explicit ServerConnection(const Options& options);
  ~ServerConnection();  ///< gives the name up and closes every connection
  ServerConnection(const ServerConnection&) = delete;
  ServerConnection& operator=(const ServerConnection&) = delete;

  /// Both must be set before registerName() and stay until the connection ends.
  void setDelegate(std::shared_ptr<ConnectionDelegate> delegate);
  void setRootObject(std::shared_ptr<const ProtocolChecker> rootObject);
  /// Takes the name; false when a living process has it, or when this process may not register names. The name of a
  /// process that died is taken over. Until then nobody can connect.
  [[nodiscard]] bool registerName(const std::string& name);
  /// Sends the notification to those peers that asked for notifications.
  void sendNotification(const Notification& notification);
  /// Who asks for the operation that the root object carries out now; nothing at other times.
  [[nodiscard]] std::optional<Caller> caller() const;
  /// Whether peers have waited in vain for a while because the process has no descriptor for one more.
  [[nodiscard]] bool isStarved() const;

 private:
  class Implementation;
  std::shared_ptr<Implementation> implementation_;
};

}  // namespace ipc
