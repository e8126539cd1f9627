#include "general/logging/LogService.h"

#include <cerrno>
#include <chrono>
#include <exception>
#include <string>
#include <string_view>

namespace logging {

namespace {

bool isBusy(int errorNumber) { return errorNumber == EAGAIN || errorNumber == EWOULDBLOCK || errorNumber == ENOBUFS; }

constexpr std::string_view kName = "the system log";

}  // namespace

LogService::LogService(const LogSocketPaths& paths, std::chrono::milliseconds patience)
    : socket_(connectDatagramSocket(paths.journal)), patience_(patience) {
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
    deliver(message, origin);
  } catch (const std::exception&) {
    return;  // no memory for the datagram: the copy on standard error is all there is
  }
}

void LogService::deliver(const LogMessage& message, const LogOrigin& origin) const {
  if (patience_.dropped() > 0) {
    if (!handOver(messageOfLoss(message, patience_.dropped(), kName), origin, false)) {
      patience_.drop();
      return;
    }
    patience_.tell();
  }
  if (handOver(message, origin, true)) {
    patience_.renew();
  } else {
    patience_.drop();
  }
}

bool LogService::handOver(const LogMessage& message, const LogOrigin& origin, bool wait) const {
  const std::string datagram = takesFields_ ? journalDatagram(message, origin) : syslogDatagram(message, origin);
  while (!handOverOnce(datagram)) {
    if (errno != EINTR && (!isBusy(errno) || !wait || !patience_.waitToWrite(socket_.number()))) {
      return false;
    }
  }
  return true;
}

bool LogService::handOverOnce(const std::string& datagram) const {
  return sendDatagram(socket_, datagram) || (errno == EMSGSIZE && takesFields_ && sendInMemoryFile(socket_, datagram));
}

}  // namespace logging
