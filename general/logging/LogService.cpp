#include "general/logging/LogService.h"

#include <cerrno>
#include <exception>
#include <string>

namespace logging {

LogService::LogService(const LogSocketPaths& paths) : socket_(connectDatagramSocket(paths.journal)) {
  takesFields_ = socket_.isOpen();
  if (!takesFields_) {
    socket_ = connectDatagramSocket(paths.syslog);
  }
}

void LogService::send(const LogMessage& message, const LogOrigin& origin) const noexcept {
  if (!isConnected()) {
    return;
  }
  try {
    const std::string datagram = takesFields_ ? journalDatagram(message, origin) : syslogDatagram(message, origin);
    if (!sendDatagram(socket_, datagram) && errno == EMSGSIZE && takesFields_) {
      sendInMemoryFile(socket_, datagram);
    }
  } catch (const std::exception&) {
    return;  // no memory for the datagram: the copy on standard error is all there is
  }
}

}  // namespace logging
