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

namespace {

std::optional<ucred> credentialsOfPeer(int socket) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0 ? std::optional(credentials)
                                                                               : std::nullopt;
}

}  // namespace

std::optional<uid_t> userOfPeer(int socket) {
  const auto credentials = credentialsOfPeer(socket);
  return credentials ? std::optional(credentials->uid) : std::nullopt;
}

std::optional<pid_t> processOfPeer(int socket) {
  // One of another process namespace has no number here.
  const auto credentials = credentialsOfPeer(socket);
  return credentials && credentials->pid > 0 ? std::optional(credentials->pid) : std::nullopt;
}

}  // namespace ipc::primitives
