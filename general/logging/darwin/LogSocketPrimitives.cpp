#include "general/logging/LogSocketPrimitives.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>

namespace logging {

const LogSocketPaths& systemLogSocketPaths() {
  static const LogSocketPaths paths{"", "/var/run/syslog"};
  return paths;
}

foundation::Descriptor connectDatagramSocket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    return {};
  }
  std::copy(path.begin(), path.end(), std::begin(address.sun_path));
  foundation::Descriptor end(socket(AF_UNIX, SOCK_DGRAM, 0));
  const int yes = 1;
  if (!end.isOpen() || fcntl(end.number(), F_SETFD, FD_CLOEXEC) != 0 || fcntl(end.number(), F_SETFL, O_NONBLOCK) != 0 ||
      setsockopt(end.number(), SOL_SOCKET, SO_NOSIGPIPE, &yes, sizeof yes) != 0 ||
      connect(end.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return {};
  }
  return end;
}

bool sendDatagram(const foundation::Descriptor& socket, std::string_view datagram) {
  return send(socket.number(), datagram.data(), datagram.size(), 0) >= 0;
}

bool sendInMemoryFile(const foundation::Descriptor&, std::string_view) {
  errno = EMSGSIZE;
  return false;
}

}  // namespace logging
