#include "general/logging/LogSocketPrimitives.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace logging {

namespace {

/// The journal accepts a file only when nobody can change it any more.
foundation::Descriptor sealedFile(std::string_view content) {
  foundation::Descriptor file(memfd_create("log message", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!file.isOpen() || foundation::writeAll(file.number(), std::as_bytes(std::span(content))) != 0 ||
      fcntl(file.number(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL) != 0) {
    return {};
  }
  return file;
}

}  // namespace

const LogSocketPaths& systemLogSocketPaths() {
  static const LogSocketPaths paths{"/run/systemd/journal/socket", "/dev/log"};
  return paths;
}

foundation::Descriptor connectDatagramSocket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    return {};
  }
  std::copy(path.begin(), path.end(), std::begin(address.sun_path));
  foundation::Descriptor end(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!end.isOpen() || connect(end.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return {};
  }
  return end;
}

bool sendDatagram(const foundation::Descriptor& socket, std::string_view datagram) {
  return send(socket.number(), datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
}

bool sendInMemoryFile(const foundation::Descriptor& socket, std::string_view content) {
  const foundation::Descriptor file = sealedFile(content);
  if (!file.isOpen()) {
    errno = EMSGSIZE;
    return false;
  }
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  msghdr header{};
  header.msg_control = control;
  header.msg_controllen = sizeof control;
  cmsghdr* const rights = CMSG_FIRSTHDR(&header);
  rights->cmsg_level = SOL_SOCKET;
  rights->cmsg_type = SCM_RIGHTS;
  rights->cmsg_len = CMSG_LEN(sizeof(int));
  const int number = file.number();
  std::memcpy(CMSG_DATA(rights), &number, sizeof number);
  return sendmsg(socket.number(), &header, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
}

}  // namespace logging
