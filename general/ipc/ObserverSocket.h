#pragma once

#include <memory>
#include <string>

#include "general/foundation/Descriptor.h"

namespace ipc {

/// A socket of this process at which distributed notifications arrive; its name goes with it. No name comes twice, so
/// one at which nobody listens is stale for good. Use from one thread at a time.
class ObserverSocket {
 public:
  /// Null, with the reason in the log, when there is none to be had. Sweeps the stale sockets of others.
  [[nodiscard]] static std::unique_ptr<ObserverSocket> make();

  ObserverSocket(std::string path, foundation::Descriptor socket);
  ~ObserverSocket();
  ObserverSocket(const ObserverSocket&) = delete;
  ObserverSocket& operator=(const ObserverSocket&) = delete;

  /// Of the listening socket.
  [[nodiscard]] int number() const { return socket_.number(); }

 private:
  std::string path_;
  foundation::Descriptor socket_;
};

}  // namespace ipc
