#include "general/ipc/SocketPrimitives.h"

#include <fcntl.h>
#include <sys/socket.h>

namespace ipc::primitives {

using foundation::Descriptor;

Descriptor makeSocket() { return Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)); }

Descriptor acceptFrom(int listener) {
  return Descriptor(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

void setBlocking(int socket, bool blocking) {
  const int flags = fcntl(socket, F_GETFL);
  fcntl(socket, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
}

ssize_t sendSome(int socket, std::string_view bytes) {
  return send(socket, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

std::optional<uid_t> userOfPeer(int socket) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
    return std::nullopt;
  }
  return credentials.uid;
}

}  // namespace ipc::primitives
