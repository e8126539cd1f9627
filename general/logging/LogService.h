#pragma once

#include "general/foundation/Descriptor.h"
#include "general/logging/LogFormat.h"
#include "general/logging/LogSocketPrimitives.h"

namespace logging {

/// A connection to the system's log service, made once and kept. Without a service it stays unconnected and takes
/// messages at no cost. Nothing here blocks, fails or throws: what the service does not take at once is lost to it.
/// Not for use by two threads at once.
class LogService {
 public:
  explicit LogService(const LogSocketPaths& paths);

  [[nodiscard]] bool isConnected() const { return socket_.isOpen(); }
  void send(const LogMessage& message, const LogOrigin& origin) const noexcept;

 private:
  foundation::Descriptor socket_;
  bool takesFields_ = false;
};

}  // namespace logging
