#pragma once

#include <chrono>
#include <string>

#include "general/foundation/Descriptor.h"
#include "general/logging/LogFormat.h"
#include "general/logging/LogSocketPrimitives.h"
#include "general/logging/Patience.h"

namespace logging {

/// A connection to the system's log service, made once and kept. Without a service it stays unconnected and takes
/// messages at no cost. Nothing here fails or throws. A service that is busy is waited for, but one that takes nothing
/// any more only for a bounded time in all: what it does not take is then lost to it, and it is told how much that was
/// once it takes messages again. Not for use by two threads at once.
class LogService {
 public:
  static constexpr std::chrono::milliseconds kPatience{200};

  /// @param patience how long all waits together take, until something was taken again.
  explicit LogService(const LogSocketPaths& paths, std::chrono::milliseconds patience = kPatience);

  [[nodiscard]] bool isConnected() const { return socket_.isOpen(); }
  void send(const LogMessage& message, const LogOrigin& origin) const noexcept;

 private:
  void deliver(const LogMessage& message, const LogOrigin& origin) const;
  [[nodiscard]] bool handOver(const LogMessage& message, const LogOrigin& origin, bool wait) const;
  /// False, with errno set, when the service did not take it.
  [[nodiscard]] bool handOverOnce(const std::string& datagram) const;

  foundation::Descriptor socket_;
  bool takesFields_ = false;
  /// What happened to messages; the connection stays as it is.
  mutable Patience patience_;
};

}  // namespace logging
