#include "general/ipc/SocketPrimitives.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace ipc::primitives {

using foundation::Descriptor;

namespace {

Descriptor prepared(int number) {
  Descriptor socket(number);
  if (socket.isOpen()) {
    const int on = 1;
    setsockopt(number, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
    fcntl(number, F_SETFD, FD_CLOEXEC);
    setBlocking(number, false);
  }
  return socket;
}

}  // namespace

Descriptor makeSocket() { return prepared(socket(AF_UNIX, SOCK_STREAM, 0)); }

Descriptor acceptFrom(int listener) { return prepared(accept(listener, nullptr, nullptr)); }

void setBlocking(int socket, bool blocking) {
  const int flags = fcntl(socket, F_GETFL);
  fcntl(socket, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
}

ssize_t sendSome(int socket, std::string_view bytes) { return send(socket, bytes.data(), bytes.size(), MSG_DONTWAIT); }

std::optional<uid_t> userOfPeer(int socket) {
  uid_t user = 0;
  gid_t group = 0;
  return getpeereid(socket, &user, &group) == 0 ? std::optional(user) : std::nullopt;
}

std::optional<pid_t> processOfPeer(int socket) {
  pid_t process = 0;
  socklen_t size = sizeof process;
  const bool isKnown = getsockopt(socket, SOL_LOCAL, LOCAL_PEERPID, &process, &size) == 0 && process > 0;
  return isKnown ? std::optional(process) : std::nullopt;
}

}  // namespace ipc::primitives
