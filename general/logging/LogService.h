#pragma once

#include <string>
#include <string_view>

#include "general/foundation/Descriptor.h"
#include "general/logging/LogFormat.h"

namespace logging {

/// A connection to the system's log service, made once and kept. Without a service it stays unconnected and takes
/// messages at no cost. Nothing here blocks, fails or throws: what the service does not take at once is lost to it.
/// Not for use by two threads at once.
class LogService {
 public:
  struct Paths {
    std::string journal;  ///< the socket for messages with fields; empty where the system has none
    std::string syslog;   ///< the classic socket, used when the first cannot be reached
  };
  [[nodiscard]] static const Paths& systemPaths();

  explicit LogService(const Paths& paths);

  [[nodiscard]] bool isConnected() const { return socket_.isOpen(); }
  void send(const LogMessage& message, const LogOrigin& origin) const noexcept;

 private:
  foundation::Descriptor socket_;
  bool takesFields_ = false;
};

}  // namespace logging
