#pragma once

#include <string>
#include <string_view>

#include "general/foundation/Descriptor.h"

/// Datagram sockets of log services. For LogService and who makes one.
namespace logging {

/// Where the system's log service listens.
struct LogSocketPaths {
  std::string journal;  ///< the socket for messages with fields; empty where the system has none
  std::string syslog;   ///< the classic socket, used when the first cannot be reached
};
[[nodiscard]] const LogSocketPaths& systemLogSocketPaths();

/// A socket connected to the service that listens at the path; none when there is no such service.
[[nodiscard]] foundation::Descriptor connectDatagramSocket(const std::string& path);

/// Sends one datagram without waiting. False, with errno set, when the service did not take it.
[[nodiscard]] bool sendDatagram(const foundation::Descriptor& socket, std::string_view datagram);

/// Hands over what is too long for a datagram as a sealed file in memory, which the journal takes as well. False, with
/// errno set, when the service did not take it; EMSGSIZE where the system has no such files.
[[nodiscard]] bool sendInMemoryFile(const foundation::Descriptor& socket, std::string_view content);

}  // namespace logging
